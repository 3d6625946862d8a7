// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Encoded text that comes in pieces, is cut off, or is none.

#include <glib.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "socket_owners.h"

using namespace vask_test;
using namespace std::string_literals;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr char invalid[] = "Invalid byte sequence in conversion input";
constexpr char leftover[] = "Leftover unconverted data in read buffer";

struct encoded {
    const char* encoding;
    std::string bytes;
};

std::ostream& operator<<(std::ostream& stream, const encoded& text) {
    return stream << text.encoding;
}

struct g_free_it {
    void operator()(gchar* memory) const { g_free(memory); }
};

std::string converted(const std::string& text, const char* to, const char* from, bool& ok) {
    gsize size = 0;
    const std::unique_ptr<gchar, g_free_it> result(g_convert(
        text.data(), static_cast<gssize>(text.size()), to, from, nullptr, &size, nullptr));
    ok = result != nullptr;
    return ok ? std::string(result.get(), size) : std::string();
}

encoded in(const char* encoding, const std::string& utf8) {
    bool ok = false;
    const std::string bytes = converted(utf8, encoding, "UTF-8", ok);
    if (!ok) {
        fprintf(stderr, "No text in %s\n", encoding);
        abort();
    }
    return {encoding, bytes};
}

/** What of some bytes is whole characters, as UTF-8. */
std::string whole_characters(const std::string& bytes, const char* encoding, bool& all) {
    all = true;
    std::string rest = bytes;
    for (bool ok = false;; rest.pop_back(), all = false) {
        const std::string utf8 = converted(rest, "UTF-8", encoding, ok);
        if (ok) {
            return utf8;
        }
    }
}

std::string whole_characters(const encoded& text) {
    bool all = false;
    return whole_characters(text.bytes, text.encoding, all);
}

/** Letters of one, two, three and four bytes, and shifts from one set to another. */
constexpr char all_kinds[] = "a\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80\xe3\x81\x82\xe6\xbc\xa2z\n";
constexpr char japanese[] = "a\xe3\x81\x82\xe6\xbc\xa2\xe5\xad\x97z\xe3\x83\x8a\n";

/** Takes requests until one ends without being complete. */
class reading_on {
public:
    reading_on(vask_socket& socket, gsize size) : m_size(size) {
        m_owner.then = [this](vask_socket* ready) {
            received += m_owner.received;
            if (m_owner.complete) {
                ask(*ready);
            }
        };
        ask(socket);
    }

    int status() const { return m_owner.status; }
    bool is_over() const { return m_owner.calls > 0 && !m_owner.complete; }
    std::string received;

private:
    void ask(vask_socket& socket) { socket.set_read_request(m_owner.handler(), m_size, 1, 0); }

    gsize m_size;
    request_owner m_owner;
};

/** Without the tick of a timer, which would wake the loop. */
void run_to_the_end_of_the_request(connected& pair) {
    while (pair.socket.m_read_context.reading) {
        g_main_context_iteration(nullptr, TRUE);
    }
}

class split_text : public testing::TestWithParam<encoded> {
protected:
    const encoded& text = GetParam();
    const std::string utf8 = whole_characters(text);
};

std::string failed_read(int room, const char* reason) {
    return "Failed to call g_io_channel_read_chars: " + std::to_string(room) + ": 0: " + reason;
}

class supplied : public open_socket<vask_socket> {
public:
    supplied(int fd, const char* encoding) : open_socket(VASK_SOCK_TCP, 0, nullptr) {
        peer_sock = fd;
        peer_ch = g_io_channel_unix_new(fd);
        g_io_channel_set_flags(peer_ch, G_IO_FLAG_NONBLOCK, nullptr);
        g_io_channel_set_encoding(peer_ch, encoding, nullptr);
    }
};

void stop_buffering(GIOChannel* channel) {
    ASSERT_EQ(g_io_channel_set_encoding(channel, nullptr, nullptr), G_IO_STATUS_NORMAL);
    g_io_channel_set_buffered(channel, FALSE);
}

}  // namespace

TEST_P(split_text, Arrives_byte_by_byte) {
    log_catcher log;
    connected pair(text.encoding);
    pair.read(utf8.size(), utf8.size());
    for (const char byte : text.bytes) {
        pair.peer.send({byte});
        drain_main_loop();
    }
    EXPECT_TRUE(pair.wait_for_end_of_request());
    EXPECT_EQ(pair.owner.received, utf8);
    EXPECT_EQ(pair.owner.status, 1);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_P(split_text, Arrives_in_two_pieces) {
    log_catcher log;
    for (size_t split = 1; split < text.bytes.size(); ++split) {
        connected pair(text.encoding);
        pair.read(utf8.size(), utf8.size());
        pair.peer.send(text.bytes.substr(0, split));
        drain_main_loop();
        pair.peer.send(text.bytes.substr(split));
        EXPECT_TRUE(pair.wait_for_end_of_request());
        EXPECT_EQ(pair.owner.received, utf8) << split;
    }
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_P(split_text, Arrives_in_requests_for_one_character) {
    log_catcher log;
    connected pair(text.encoding);
    constexpr gsize longest_character = 4;
    reading_on reader(pair.socket, longest_character);
    for (const char byte : text.bytes) {
        pair.peer.send({byte});
        drain_main_loop();
    }
    EXPECT_TRUE(wait_until([&] { return reader.received == utf8; }));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_P(split_text, That_is_cut_off_ends_the_request_behind_its_last_whole_character) {
    for (size_t cut = 0; cut <= text.bytes.size(); ++cut) {
        log_catcher log;
        const std::string bytes = text.bytes.substr(0, cut);
        bool all = false;
        const std::string whole = whole_characters(bytes, text.encoding, all);
        connected pair(text.encoding);
        reading_on reader(pair.socket, 100);
        pair.peer.send(bytes);
        pair.peer.close();

        EXPECT_TRUE(wait_until([&] { return reader.is_over(); }));

        EXPECT_EQ(reader.received, whole) << cut;
        EXPECT_EQ(reader.status(), all ? 2 : 0) << cut;
        if (all) {
            EXPECT_THAT(log.lines(), IsEmpty());
        } else {
            EXPECT_THAT(log.lines(),
                        ElementsAre(socket_line("ERR", client_name, failed_read(100, leftover))));
        }
    }
}

TEST_P(split_text, That_comes_byte_by_byte_and_is_cut_off_ends_the_request) {
    for (size_t cut = 0; cut <= text.bytes.size(); ++cut) {
        log_catcher log;
        bool all = false;
        whole_characters(text.bytes.substr(0, cut), text.encoding, all);
        connected pair(text.encoding);
        pair.read(100, 100);
        for (size_t i = 0; i < cut; ++i) {
            pair.peer.send({text.bytes[i]});
            drain_main_loop();
        }
        pair.peer.close();
        EXPECT_TRUE(pair.wait_for_end_of_request());
        EXPECT_EQ(pair.owner.status, all ? 2 : 0) << cut;
    }
}

// The decoder may keep more bytes of the former encoding than are whole in the next one.
TEST_P(split_text, That_is_cut_where_the_encoding_changes_goes_on_in_the_next_one) {
    for (const char* next : {"UTF-8", "UTF-16LE", "EUC-JP", "ISO-8859-1"}) {
        for (size_t cut = 1; cut <= text.bytes.size(); ++cut) {
            SCOPED_TRACE(std::string(next) + " " + std::to_string(cut));
            connected pair(text.encoding);
            reading_on reader(pair.socket, 100);
            pair.peer.send(text.bytes.substr(0, cut));
            drain_main_loop();
            ASSERT_EQ(g_io_channel_set_encoding(pair.socket.peer_ch, next, nullptr),
                      G_IO_STATUS_NORMAL);
            pair.peer.send("more and more");
            pair.peer.close();

            EXPECT_TRUE(wait_until([&] { return reader.is_over(); }));
        }
    }
}

TEST(text_whose_encoding_changes, Goes_on_with_what_the_decoder_keeps) {
    connected pair("UTF-16LE");
    reading_on reader(pair.socket, 100);
    pair.peer.send("A\0\x3d\xd8"s);
    EXPECT_TRUE(wait_until([&] { return reader.received == "A"; }));
    g_io_channel_set_encoding(pair.socket.peer_ch, "UTF-8", nullptr);
    pair.peer.send("more");
    EXPECT_TRUE(wait_until([&] { return reader.received == "A="; }));
}

// In this encoding a letter waits for its accent; the decoder that waits is replaced.
TEST(text_whose_encoding_changes, To_the_same_one_goes_on_with_what_comes) {
    connected pair("TCVN");
    reading_on reader(pair.socket, 100);
    pair.peer.send("AB");
    EXPECT_TRUE(wait_until([&] { return reader.received == "A"; }));
    g_io_channel_set_encoding(pair.socket.peer_ch, "TCVN", nullptr);
    pair.peer.send("C");
    drain_main_loop();
    pair.peer.send("D");
    EXPECT_TRUE(wait_until([&] { return reader.received == "AC"; }));
}

TEST(text_whose_encoding_changes, To_raw_bytes_goes_on_behind_what_the_decoder_keeps) {
    connected pair("SHIFT_JIS");
    reading_on reader(pair.socket, 8);
    // None of the last eight is decoded, because the first of them is no text.
    pair.peer.send(
        "H\xa0"
        "1234567");
    EXPECT_TRUE(wait_until([&] { return reader.received == "H"; }));
    g_io_channel_set_encoding(pair.socket.peer_ch, nullptr, nullptr);
    pair.peer.send("more");
    EXPECT_TRUE(wait_until([&] {
        return reader.received ==
               "H\xa0"
               "1234567more";
    }));
}

TEST(text_whose_encoding_changes, To_raw_bytes_without_a_buffer_goes_on_behind_what_was_read) {
    log_catcher log;
    connected pair("UTF-8");
    pair.read(4, 4);
    pair.peer.send("head");
    EXPECT_TRUE(pair.wait_for_end_of_request());
    stop_buffering(pair.socket.peer_ch);

    pair.read(4, 4);
    pair.peer.send("more");

    EXPECT_TRUE(pair.wait_for_end_of_request());
    EXPECT_EQ(pair.owner.received, "more");
    EXPECT_THAT(log.lines(), IsEmpty());
}

// A channel has no buffer before it is read.
TEST(text_whose_encoding_changes, To_raw_bytes_without_a_buffer_goes_on_before_the_first_read) {
    connected pair("UTF-8");
    pair.read(4, 4);
    stop_buffering(pair.socket.peer_ch);

    pair.peer.send("more");

    EXPECT_TRUE(pair.wait_for_end_of_request());
    EXPECT_EQ(pair.owner.received, "more");
}

TEST(text_whose_encoding_changes, To_raw_bytes_gives_no_more_of_a_character_than_is_asked_for) {
    connected pair("UTF-8");
    reading_on reader(pair.socket, 1);
    pair.peer.send("\xf0\x9f\x98");
    drain_main_loop();
    stop_buffering(pair.socket.peer_ch);

    pair.peer.send("\x80 more");

    EXPECT_TRUE(wait_until([&] { return reader.received == "\xf0\x9f\x98\x80 more"; }));
}

// Nothing else comes that would wake anybody.
TEST(text_whose_encoding_changes, To_raw_bytes_begins_with_the_part_of_a_character_that_has_come) {
    for (const bool has_buffer : {true, false}) {
        SCOPED_TRACE(has_buffer);
        connected pair("UTF-8");
        pair.read(4, 4);
        pair.peer.send("head\xf0\x9f");
        EXPECT_TRUE(pair.wait_for_end_of_request());
        stop_buffering(pair.socket.peer_ch);
        g_io_channel_set_buffered(pair.socket.peer_ch, has_buffer);

        reading_on reader(pair.socket, 1);

        EXPECT_TRUE(wait_until([&] { return reader.received == "\xf0\x9f"; }));
    }
}

TEST(text_whose_encoding_changes, Begins_with_what_was_read_ahead) {
    connected pair("UTF-8");
    pair.read(4, 4);
    // Half a character of the second encoding has come with the last bytes of the first one.
    pair.peer.send("headA");
    EXPECT_TRUE(pair.wait_for_end_of_request());
    EXPECT_EQ(g_io_channel_set_encoding(pair.socket.peer_ch, "UTF-16LE", nullptr),
              G_IO_STATUS_NORMAL);
    pair.read(4, 1);
    drain_main_loop();
    pair.peer.send("\0"s);
    EXPECT_TRUE(pair.wait_for_end_of_request());
    EXPECT_EQ(pair.owner.received, "A");
}

INSTANTIATE_TEST_SUITE_P(encoding, split_text,
                         testing::Values(in("UTF-8", all_kinds), in("utf-8", all_kinds),
                                         in("UTF-16", all_kinds), in("UTF-16LE", all_kinds),
                                         in("UTF-16BE", all_kinds), in("UTF-32", all_kinds),
                                         in("GB18030", all_kinds), in("UTF-7", all_kinds),
                                         in("EUC-JP", japanese), in("SHIFT_JIS", japanese),
                                         in("ISO-2022-JP", japanese),
                                         in("ISO-8859-1", "a\xc3\xa9z")),
                         [](const auto& test) {
                             std::string name = test.param.encoding;
                             for (char& letter : name) {
                                 letter = g_ascii_isalnum(letter) ? letter : '_';
                             }
                             return name;
                         });

TEST(bad_text, Behind_a_good_one_fails_the_request_without_waiting_for_more) {
    for (const encoded& bad : std::vector<encoded>{{"UTF-8", "ab\xff"},
                                                   {"UTF-8", "ab\xff and good again"},
                                                   {"UTF-16LE", "a\0b\0\0\xdc"s},
                                                   {"EUC-JP", "ab\xa4\x20"},
                                                   {"US-ASCII", "ab\xe4"}}) {
        SCOPED_TRACE(bad.bytes);
        log_catcher log;
        connected pair(bad.encoding);
        pair.read(100, 100);
        pair.peer.send(bad.bytes);
        run_to_the_end_of_the_request(pair);
        EXPECT_EQ(pair.owner.received, "ab");
        EXPECT_EQ(pair.owner.status, 0);
        EXPECT_THAT(log.lines(),
                    ElementsAre(socket_line("ERR", client_name, failed_read(98, invalid))));
    }
}

TEST(bad_text, Behind_a_request_that_is_complete_fails_the_next_one_without_waiting_for_more) {
    log_catcher log;
    connected pair("UTF-8");
    pair.read(2, 2);
    pair.peer.send("ab\xff");
    run_to_the_end_of_the_request(pair);
    EXPECT_EQ(pair.owner.status, 1);
    EXPECT_EQ(pair.owner.received, "ab");

    pair.read(2, 2);
    run_to_the_end_of_the_request(pair);

    EXPECT_EQ(pair.owner.status, 0);
    EXPECT_THAT(log.lines(), ElementsAre(socket_line("ERR", client_name, failed_read(2, invalid))));
}

TEST(bad_text, Is_passed_by_no_later_request) {
    log_catcher log;
    connected pair("UTF-8");
    pair.peer.send("\xff then good text");
    for (int i = 0; i < 3; ++i) {
        pair.read(2, 2);
        run_to_the_end_of_the_request(pair);
        EXPECT_EQ(pair.owner.status, 0);
        EXPECT_EQ(pair.owner.received, "");
    }
}

TEST(bad_text, A_zero_in_UTF_8_fails_the_request_and_is_not_waited_on_for_ever) {
    log_catcher log;
    connected pair("UTF-8");
    pair.read(100, 100);
    pair.peer.send("ab\0cd"s);
    run_to_the_end_of_the_request(pair);
    EXPECT_EQ(pair.owner.received, "ab");
    EXPECT_EQ(pair.owner.status, 0);
}

TEST(bad_text, Of_shifts_without_a_character_fails_before_it_fills_the_memory) {
    log_catcher log;
    connected pair("ISO-2022-JP");
    pair.read(100, 100);
    for (int i = 0; i < 1000 && pair.socket.m_read_context.reading; ++i) {
        pair.peer.send("\x1b$B\x1b(B");
        drain_main_loop();
    }
    EXPECT_TRUE(pair.wait_for_end_of_request());
    EXPECT_EQ(pair.owner.status, 0);
    EXPECT_THAT(log.lines(),
                ElementsAre(socket_line("ERR", client_name, failed_read(100, invalid))));
}

// An escape that begins no sequence is a character, but only what follows it tells that.
TEST(escape, In_front_of_another_one_is_decoded_by_what_follows_it) {
    log_catcher log;
    connected pair("ISO-2022-JP");
    pair.read(100, 2);
    pair.peer.send(
        "\x1b"
        "A\x1b");
    run_to_the_end_of_the_request(pair);
    EXPECT_EQ(pair.owner.received,
              "\x1b"
              "A");
    EXPECT_EQ(pair.owner.status, 1);
}

TEST(escape, In_front_of_bad_bytes_is_decoded_before_they_fail_the_request) {
    log_catcher log;
    connected pair("ISO-2022-JP");
    pair.read(100, 100);
    pair.peer.send("\x1b\x98$");
    run_to_the_end_of_the_request(pair);
    EXPECT_EQ(pair.owner.received, "\x1b");
    EXPECT_EQ(pair.owner.status, 0);
    EXPECT_THAT(log.lines(),
                ElementsAre(socket_line("ERR", client_name, failed_read(99, invalid))));
}

TEST(escape, That_comes_in_pieces_at_the_end_cuts_nothing_off) {
    log_catcher log;
    connected pair("ISO-2022-JP");
    reading_on reading(pair.socket, 100);
    pair.peer.send("\x1b$BF|\x1b");
    drain_main_loop();
    pair.peer.send("(B");
    drain_main_loop();
    pair.peer.close();
    run_to_the_end_of_the_request(pair);
    EXPECT_EQ(reading.received, "\xe6\x97\xa5");
    EXPECT_EQ(reading.status(), 2);
    EXPECT_THAT(log.lines(), IsEmpty());
}

// In such an encoding the next byte may be an accent of the one before.
TEST(late_text, Of_which_the_last_character_waits_for_the_next_one_arrives_without_it) {
    log_catcher log;
    connected pair("CP1258");
    reading_on reader(pair.socket, 100);
    for (const char byte : "tu\xe2n"s) {
        pair.peer.send({byte});
        drain_main_loop();
    }
    EXPECT_EQ(reader.received, "tu\xc3\xa2");
    pair.peer.close();
    EXPECT_TRUE(wait_until([&] { return reader.is_over(); }));
    EXPECT_EQ(reader.status(), 0);
    EXPECT_THAT(log.lines(),
                ElementsAre(socket_line("ERR", client_name, failed_read(100, leftover))));
}

TEST(supplied_text_channel, Puts_characters_together_as_well) {
    raw_socket listener = raw_socket::listening();
    const raw_socket peer = raw_socket::connected_to(listener.port());
    raw_socket accepted = listener.accept();
    supplied socket(dup(accepted.fd()), "UTF-16LE");
    request_owner owner;
    ASSERT_TRUE(socket.set_read_request(owner.handler(), 4, 4, 0));
    for (const char byte : "\x3d\xd8\x00\xde"s) {
        peer.send({byte});
        drain_main_loop();
    }
    EXPECT_TRUE(wait_until([&] { return owner.calls == 1; }));
    EXPECT_EQ(owner.received, "\xf0\x9f\x98\x80");
}

TEST(shared_text, That_one_socket_has_read_ahead_wakes_the_request_of_the_other) {
    connected pair("UTF-8");
    vask_socket copy(pair.socket);
    request_owner second;
    pair.read(3, 3);
    copy.set_read_request(second.handler(), 3, 3, 0);

    pair.peer.send("abcdef");
    while (pair.socket.m_read_context.reading || copy.m_read_context.reading) {
        g_main_context_iteration(nullptr, TRUE);
    }

    EXPECT_EQ(pair.owner.received + second.received, "abcdef");
}

TEST(shared_text, That_is_bad_fails_the_requests_of_both) {
    log_catcher log;
    connected pair("UTF-8");
    vask_socket copy(pair.socket);
    request_owner second;
    pair.read(3, 3);
    copy.set_read_request(second.handler(), 3, 3, 0);
    pair.peer.send("abc\xff");
    while (pair.socket.m_read_context.reading || copy.m_read_context.reading) {
        g_main_context_iteration(nullptr, TRUE);
    }
    EXPECT_EQ(pair.owner.status + second.status, 1);
}
