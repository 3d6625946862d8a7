// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <glib.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include "socket_owners.h"
#include "support/glib_log_catcher.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr char signature[] =
    "bool vask_socket::set_read_request(vask_obj_exec_info, gsize, gsize, int)";

constexpr char umlauts_utf8[] = "\xc3\xa4\xc3\xb6\xc3\xbc";
constexpr char umlauts_latin1[] = "\xe4\xf6\xfc";

auto no_room_line(int room) {
    return socket_line(
        "ERR", client_name,
        vask_object::vask_sprintf("Failed to call g_io_channel_read_chars: %d: 1: ", room));
}

/** A request of this size ends as a failed one, for want of room for the last character sent. */
void expect_no_room(int size, const char* sent, const char* received, int room) {
    connected pair("UTF-8");
    log_catcher log;
    pair.read(size, size);
    pair.peer.send(sent);
    EXPECT_TRUE(pair.wait_for_end_of_request());
    EXPECT_EQ(pair.owner.status, 0);
    EXPECT_EQ(pair.owner.received, received);
    EXPECT_THAT(log.lines(), ElementsAre(no_room_line(room)));
}

class supplied : public open_socket<vask_socket> {
public:
    supplied(int fd, const char* encoding) : open_socket(VASK_SOCK_TCP, 0, encoding) {
        peer_sock = fd;
    }
};

}  // namespace

TEST(encoding, Of_a_socket_without_one_is_none_and_unbuffered) {
    connected pair;
    EXPECT_EQ(g_io_channel_get_encoding(pair.socket.peer_ch), nullptr);
    EXPECT_FALSE(g_io_channel_get_buffered(pair.socket.peer_ch));
}

TEST(encoding, Is_set_on_the_channel_without_a_complaint_of_GLib) {
    glib_log_catcher glib_log;
    connected pair("ISO-8859-1");
    EXPECT_STREQ(g_io_channel_get_encoding(pair.socket.peer_ch), "ISO-8859-1");
    EXPECT_THAT(glib_log.entries, IsEmpty());
}

TEST(encoding, What_is_written_reaches_the_peer_at_once_and_encoded) {
    connected pair("ISO-8859-1");
    EXPECT_TRUE(pair.socket.write(umlauts_utf8, -1));
    EXPECT_EQ(pair.peer.receive(3), umlauts_latin1);
}

TEST(encoding, UTF_8_is_written_at_once_as_well) {
    connected pair("UTF-8");
    EXPECT_TRUE(pair.socket.write(umlauts_utf8, -1));
    EXPECT_EQ(pair.peer.receive(6), umlauts_utf8);
}

TEST(encoding, A_request_of_size_0_completes_when_data_comes_and_takes_none) {
    connected pair("ISO-8859-1");
    pair.read(0, 0);
    pair.peer.send(umlauts_latin1);
    EXPECT_TRUE(pair.wait_for_end_of_request());
    EXPECT_EQ(pair.owner.status, 1);
    pair.read(6, 6);
    EXPECT_TRUE(pair.wait_for_end_of_request());
    EXPECT_EQ(pair.owner.received, umlauts_utf8);
}

TEST(encoding, What_is_read_is_decoded) {
    connected pair("ISO-8859-1");
    pair.read(6, 6);
    pair.peer.send(umlauts_latin1);
    EXPECT_TRUE(pair.wait_for_end_of_request());
    EXPECT_EQ(pair.owner.received, umlauts_utf8);
}

TEST(encoding, A_read_takes_what_is_there_and_does_not_wait_for_the_whole_request) {
    connected pair("UTF-8");
    pair.read(100, 3);
    pair.peer.send("abc");
    EXPECT_TRUE(pair.wait_for_end_of_request());
    EXPECT_EQ(pair.owner.received, "abc");
}

TEST(encoding, The_loop_runs_on_while_a_request_is_incomplete) {
    connected pair("UTF-8");
    pair.read(100, 100);
    pair.peer.send("abc");
    EXPECT_TRUE(wait_until([&] { return pair.socket.m_read_context.received == 3; }));
    bool dispatched = false;
    const guint other = g_idle_add(
        [](gpointer flag) -> gboolean {
            *static_cast<bool*>(flag) = true;
            return G_SOURCE_CONTINUE;
        },
        &dispatched);
    EXPECT_TRUE(wait_until([&] { return dispatched; }));
    g_source_remove(other);
    EXPECT_EQ(pair.owner.calls, 0);
}

TEST(encoding, What_the_channel_has_read_ahead_serves_the_next_requests) {
    connected pair("UTF-8");
    pair.read(3, 3);
    pair.peer.send("abcdefghi");
    EXPECT_TRUE(pair.wait_for_end_of_request());
    EXPECT_EQ(pair.owner.received, "abc");
    for (const char* rest : {"def", "ghi"}) {
        pair.read(3, 3);
        // Without the tick of a timer, which would wake the loop.
        while (pair.socket.m_read_context.reading) {
            g_main_context_iteration(nullptr, TRUE);
        }
        EXPECT_EQ(pair.owner.received, rest);
    }
}

TEST(encoding, A_character_in_pieces_is_put_together) {
    connected pair("UTF-8");
    pair.read(10, 3);
    pair.peer.send("\xe2\x82");
    drain_main_loop();
    EXPECT_EQ(pair.owner.calls, 0);
    pair.peer.send("\xac");
    EXPECT_TRUE(pair.wait_for_end_of_request());
    EXPECT_EQ(pair.owner.status, 1);
    EXPECT_EQ(pair.owner.received, "\xe2\x82\xac");
}

TEST(encoding, A_part_of_a_character_starts_the_time_out_anew) {
    connected pair("UTF-8");
    pair.read(10, 3, 5);
    const guint former = pair.socket.m_read_context.timer_id;
    pair.peer.send("\xe2\x82");
    EXPECT_TRUE(wait_until([&] { return pair.socket.m_read_context.timer_id != former; }));
    EXPECT_TRUE(pair.socket.m_read_context.reading);
}

TEST(encoding, A_request_without_room_for_the_next_character_fails) {
    expect_no_room(2, "\xe2\x82\xac", "", 2);
}

TEST(encoding, A_request_whose_last_character_does_not_fit_fails_with_the_others_received) {
    connected pair("UTF-8");
    log_catcher log;
    pair.read(4, 4);
    pair.peer.send("ab\xe2\x82\xac");
    while (pair.socket.m_read_context.reading) {
        g_main_context_iteration(nullptr, TRUE);
    }
    EXPECT_EQ(pair.owner.status, 0);
    EXPECT_EQ(pair.owner.received, "ab");
    EXPECT_THAT(log.lines(), ElementsAre(no_room_line(2)));
}

TEST(encoding, A_longer_character_does_not_fit_in_the_last_byte_of_a_request) {
    expect_no_room(3, "ab\xe2\x82\xac", "ab", 1);
}

TEST(encoding, The_end_of_the_stream_comes_after_all_data) {
    connected pair("UTF-8");
    pair.peer.send("abc");
    pair.peer.close();
    pair.read(10, 10);
    while (pair.socket.m_read_context.reading) {
        g_main_context_iteration(nullptr, TRUE);
    }
    EXPECT_EQ(pair.owner.status, 2);
    EXPECT_EQ(pair.owner.received, "abc");
}

TEST(encoding, A_reset_ends_the_request) {
    connected pair("UTF-8");
    log_catcher log;
    pair.read(10, 10);
    pair.peer.reset();
    while (pair.socket.m_read_context.reading) {
        g_main_context_iteration(nullptr, TRUE);
    }
    EXPECT_EQ(pair.owner.status, 0);
}

TEST(encoding, Bytes_that_are_no_text_fail) {
    connected pair("UTF-8");
    log_catcher log;
    pair.read(10, 10);
    pair.peer.send("\xff\xff\xff\xff\xff\xff");
    EXPECT_TRUE(pair.wait_for_end_of_request());
    EXPECT_EQ(pair.owner.status, 0);
    EXPECT_THAT(log.lines(), ElementsAre(socket_line("ERR", client_name,
                                                     "Failed to call g_io_channel_read_chars: 10: "
                                                     "0: Invalid byte sequence in conversion "
                                                     "input")));
}

TEST(encoding, Text_that_cannot_be_encoded_fails_and_closes_the_peer) {
    connected pair("ISO-8859-1");
    log_catcher log;
    EXPECT_FALSE(pair.socket.write("\xe2\x82\xac", 3));
    EXPECT_EQ(pair.socket.peer_ch, nullptr);
    EXPECT_THAT(log.lines(), ElementsAre(socket_line("ERR", client_name,
                                                     "Failed to call g_io_channel_write_chars: 3: "
                                                     "0: Invalid byte sequence in conversion "
                                                     "input")));
}

TEST(encoding, Of_a_text_that_cannot_be_encoded_the_peer_receives_nothing) {
    connected pair("ISO-8859-1");
    log_catcher log;
    EXPECT_FALSE(pair.socket.write("ab\xe2\x82\xac", 5));
    EXPECT_EQ(pair.peer.receive_to_the_end(), "");
}

TEST(encoding, A_write_that_cannot_be_sent_ends_in_the_failure_line_and_not_in_a_signal) {
    connected pair("UTF-8");
    shutdown(pair.socket.peer_sock, SHUT_WR);
    log_catcher log;
    EXPECT_FALSE(pair.socket.write("hello", 5));
    EXPECT_THAT(log.lines(), ElementsAre(socket_line("ERR", client_name,
                                                     "Failed to call g_io_channel_write_chars: 5: "
                                                     "0: Broken pipe")));
}

TEST(encoding, A_long_text_is_written_whole) {
    connected pair("UTF-16LE");
    const std::string text(20000, 'x');
    EXPECT_TRUE(pair.socket.write(text.data(), static_cast<gssize>(text.size())));
    EXPECT_EQ(pair.peer.receive(40000).size(), 40000u);
}

TEST(encoding, An_unknown_one_is_refused_by_the_first_request_which_keeps_the_channel) {
    connected pair;
    supplied socket(dup(pair.peer.fd()), "NO-SUCH-ENCODING");
    log_catcher log;

    EXPECT_FALSE(socket.set_read_request({}, 1, 1, 0));

    EXPECT_FALSE(socket.m_read_context.reading);
    EXPECT_NE(socket.peer_ch, nullptr);
    EXPECT_THAT(log.lines(),
                ElementsAre(unknown_encoding_line(no_name, std::string(signature) + ": ")));
}

TEST(encoding, Is_kept_by_a_copy) {
    connected pair("ISO-8859-1");
    vask_socket copy(pair.socket);
    EXPECT_TRUE(copy.write(umlauts_utf8, -1));
    EXPECT_EQ(pair.peer.receive(3), umlauts_latin1);
}
