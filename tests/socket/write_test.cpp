// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <glib.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <atomic>
#include <cerrno>
#include <thread>

#include "socket_owners.h"
#include "support/interpose.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr char signature[] = "bool vask_socket::write(const gchar*, gssize)";

/** What send() fails with instead of sending, and how many times. */
int error_of_send = 0;
int failures_of_send = 0;

/** How many bytes one send() takes at most; 0 for all. */
size_t most_per_send = 0;

std::atomic<int> interruptions{0};

void interrupt(int) {
    ++interruptions;
}

/** Interrupts this thread every millisecond. */
class interrupted_thread {
public:
    interrupted_thread() {
        struct sigaction action = {};
        action.sa_handler = interrupt;
        sigaction(SIGUSR1, &action, &m_former);
        m_interrupter = std::thread([this, target = pthread_self()] {
            while (!m_over) {
                pthread_kill(target, SIGUSR1);
                g_usleep(1000);
            }
        });
    }
    ~interrupted_thread() {
        m_over = true;
        m_interrupter.join();
        sigaction(SIGUSR1, &m_former, nullptr);
    }

private:
    struct sigaction m_former;
    std::atomic<bool> m_over{false};
    std::thread m_interrupter;
};

}  // namespace

extern "C" ssize_t send(int fd, const void* buffer, size_t size, int flags) {
    if (failures_of_send > 0) {
        --failures_of_send;
        errno = error_of_send;
        return -1;
    }
    if (most_per_send != 0 && size > most_per_send) {
        size = most_per_send;
    }
    return next_function<ssize_t(int, const void*, size_t, int)>("send")(fd, buffer, size, flags);
}

TEST(socket_write, Reaches_the_peer_at_once) {
    connected pair;
    EXPECT_TRUE(pair.socket.write("hello", 5));
    EXPECT_EQ(pair.peer.receive(5), "hello");
}

TEST(socket_write, Writes_as_many_bytes_as_it_is_told) {
    connected pair;
    EXPECT_TRUE(pair.socket.write("hello", 2));
    EXPECT_TRUE(pair.socket.write("!", 1));
    EXPECT_EQ(pair.peer.receive(3), "he!");
}

TEST(socket_write, A_count_of_minus_1_stands_for_a_text) {
    connected pair;
    EXPECT_TRUE(pair.socket.write("hello\0world", -1));
    EXPECT_TRUE(pair.socket.write("!", 1));
    EXPECT_EQ(pair.peer.receive(6), "hello!");
}

TEST(socket_write, Of_nothing_succeeds) {
    connected pair;
    EXPECT_TRUE(pair.socket.write("", 0));
    EXPECT_TRUE(pair.socket.write(nullptr, 0));
    EXPECT_TRUE(pair.socket.write("", -1));
    EXPECT_TRUE(pair.socket.write("a", 1));
    EXPECT_EQ(pair.peer.receive(1), "a");
}

TEST(socket_write, All_byte_values_pass_raw) {
    connected pair;
    const std::string sent = every_byte(4);
    EXPECT_TRUE(pair.socket.write(sent.data(), static_cast<gssize>(sent.size())));
    EXPECT_EQ(pair.peer.receive(sent.size()), sent);
}

TEST(socket_write, Without_a_channel_fails) {
    vask_socket socket(VASK_SOCK_TCP, 0, nullptr);
    log_catcher log;
    EXPECT_FALSE(socket.write("a", 1));
    EXPECT_THAT(log.lines(), ElementsAre(socket_line(
                                 "BUG", no_name, std::string(signature) + ": peer_ch == NULL")));
}

TEST(socket_write, Of_an_accepted_socket_needs_a_read_request_first) {
    served service;
    raw_socket client = service.client();
    vask_socket& socket = *service.owner.sockets.front();
    log_catcher log;
    EXPECT_FALSE(socket.write("a", 1));
    EXPECT_THAT(log.lines(), ElementsAre(socket_line(
                                 "BUG", no_name, std::string(signature) + ": peer_ch == NULL")));

    EXPECT_TRUE(socket.set_read_request({}, 1, 1, 0));
    EXPECT_TRUE(socket.write("a", 1));
    EXPECT_EQ(client.receive(1), "a");
}

TEST(socket_write, Short_writes_are_continued) {
    connected pair;
    const std::string sent = every_byte(4);
    most_per_send = 7;
    EXPECT_TRUE(pair.socket.write(sent.data(), static_cast<gssize>(sent.size())));
    most_per_send = 0;
    EXPECT_EQ(pair.peer.receive(sent.size()), sent);
}

TEST(socket_write, One_that_a_signal_interrupts_is_repeated) {
    connected pair;
    log_catcher log;
    error_of_send = EINTR;
    failures_of_send = 3;
    EXPECT_TRUE(pair.socket.write("hello", 5));
    EXPECT_EQ(failures_of_send, 0);
    EXPECT_EQ(pair.peer.receive(5), "hello");
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(socket_write, A_slow_reader_receives_everything_while_signals_interrupt) {
    connected pair;
    const std::string sent = every_byte(32 * 1024);
    std::string received;
    std::thread slow_reader([&] {
        while (received.size() < sent.size()) {
            const std::string piece = pair.peer.receive(256 * 1024);
            if (piece.empty()) {
                break;
            }
            received += piece;
            g_usleep(2000);
        }
    });
    {
        interrupted_thread signals;
        EXPECT_TRUE(pair.socket.write(sent.data(), static_cast<gssize>(sent.size())));
    }
    slow_reader.join();
    EXPECT_GT(interruptions, 0);
    EXPECT_TRUE(received == sent);
}

TEST(socket_write, To_a_closed_peer_ends_in_the_failure_line_and_not_in_a_signal) {
    connected pair;
    log_catcher log;
    ASSERT_EQ(signal(SIGPIPE, SIG_DFL), SIG_DFL);
    pair.peer.reset();

    EXPECT_FALSE(pair.socket.write("hello", 5));

    EXPECT_THAT(log.lines(),
                ElementsAre(socket_line("ERR", client_name,
                                        "Failed to call g_io_channel_write_chars: 5: 0: "
                                        "Connection reset by peer")));
}

TEST(socket_write, After_the_peer_has_closed_fails_with_a_broken_pipe) {
    connected pair;
    log_catcher log;
    pair.peer.close();
    // The first one makes the peer's system answer with a reset.
    EXPECT_TRUE(pair.socket.write("a", 1));
    EXPECT_TRUE(wait_until_without_loop([&] {
        int error = 0;
        socklen_t length = sizeof error;
        char byte;
        return getsockopt(pair.socket.peer_sock, SOL_SOCKET, SO_ERROR, &error, &length) == 0 &&
               (error != 0 || recv(pair.socket.peer_sock, &byte, 1, MSG_DONTWAIT) == -1);
    }));

    EXPECT_FALSE(pair.socket.write("hello", -1));

    EXPECT_THAT(log.lines(), ElementsAre(socket_line("ERR", client_name,
                                                     "Failed to call g_io_channel_write_chars: -1: "
                                                     "0: Broken pipe")));
}

TEST(socket_write, That_fails_leaves_disposition_and_mask_of_signals_alone) {
    connected pair;
    log_catcher log;
    struct sigaction action_before, action_after;
    sigset_t mask_before, mask_after, pending;
    sigaction(SIGPIPE, nullptr, &action_before);
    pthread_sigmask(SIG_BLOCK, nullptr, &mask_before);
    pair.peer.reset();

    EXPECT_FALSE(pair.socket.write("hello", 5));

    sigaction(SIGPIPE, nullptr, &action_after);
    pthread_sigmask(SIG_BLOCK, nullptr, &mask_after);
    sigpending(&pending);
    EXPECT_EQ(action_before.sa_handler, action_after.sa_handler);
    EXPECT_EQ(sigismember(&mask_before, SIGPIPE), sigismember(&mask_after, SIGPIPE));
    EXPECT_EQ(sigismember(&pending, SIGPIPE), 0);
}

TEST(socket_write, A_SIGPIPE_of_somebody_else_stays_pending) {
    sigset_t only_pipe, former, pending;
    sigemptyset(&only_pipe);
    sigaddset(&only_pipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &only_pipe, &former);
    pthread_kill(pthread_self(), SIGPIPE);
    connected pair;
    log_catcher log;
    pair.peer.reset();

    EXPECT_FALSE(pair.socket.write("hello", 5));

    sigpending(&pending);
    ASSERT_EQ(sigismember(&pending, SIGPIPE), 1);
    int taken = 0;
    sigwait(&only_pipe, &taken);
    pthread_sigmask(SIG_SETMASK, &former, nullptr);
}

TEST(socket_write, That_fails_closes_the_peer_and_ends_the_request_without_a_call) {
    connected pair;
    log_catcher log;
    pair.read(1, 1);
    pair.peer.reset();

    EXPECT_FALSE(pair.socket.write("hello", 5));

    EXPECT_EQ(pair.socket.peer_sock, 0);
    EXPECT_EQ(pair.socket.peer_ch, nullptr);
    EXPECT_EQ(pair.socket.m_read_watch_id, 0u);
    EXPECT_FALSE(pair.socket.m_read_context.reading);
    drain_main_loop();
    EXPECT_EQ(pair.owner.calls, 0);
}

TEST(socket_write, That_fails_is_reported_before_the_peer_is_closed) {
    connected pair;
    pair.peer.reset();
    debug_messages level;
    log_catcher log;
    EXPECT_FALSE(pair.socket.write("hello", 5));
    EXPECT_THAT(log.lines(), ElementsAre(socket_line("ERR", client_name,
                                                     "Failed to call g_io_channel_write_chars: 5: "
                                                     "0: Connection reset by peer"),
                                         socket_line("DBG", client_name,
                                                     "void vask_socket::close_peer_sock("
                                                     "gboolean)")));
}

TEST(socket_write, After_one_that_failed_there_is_no_channel) {
    connected pair;
    log_catcher log;
    pair.peer.reset();
    EXPECT_FALSE(pair.socket.write("hello", 5));
    log.clear();
    EXPECT_FALSE(pair.socket.write("hello", 5));
    EXPECT_THAT(
        log.lines(),
        ElementsAre(socket_line("BUG", client_name, std::string(signature) + ": peer_ch == NULL")));
}

TEST(socket_write, The_count_in_the_failure_line_is_a_number_of_32_bits) {
    if (sizeof(gssize) == 4) {
        GTEST_SKIP() << "Sizes have 32 bits here.";
    }
    connected pair;
    log_catcher log;
    error_of_send = EIO;
    failures_of_send = 1;
    EXPECT_FALSE(pair.socket.write("hello", static_cast<gssize>((gint64{1} << 32) + 5)));
    EXPECT_THAT(log.lines(),
                ElementsAre(socket_line("ERR", client_name,
                                        "Failed to call g_io_channel_write_chars: 5: 0: "
                                        "Input/output error")));
}
