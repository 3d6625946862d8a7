// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// A message arrives whole, whatever standard output is and whoever disturbs the write.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <utility>

#include "support/interpose.h"
#include "support/named_object.h"
#include "support/sanitizers.h"
#include "vask_test/log_catcher.h"
#include "vask_test/main_loop.h"

using namespace vask_test;
using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::SizeIs;

namespace {

/** What happens when somebody waits for room in standard output; gone when it has happened. True
 *  interrupts the wait. */
std::function<bool()> on_wait_for_room;

std::atomic<int> signals_handled{0};

void count_signal(int) {
    ++signals_handled;
}

/** SIGUSR1 interrupts system calls while this object lives. */
class interrupting_signal {
public:
    interrupting_signal() {
        struct sigaction action = {};
        action.sa_handler = count_signal;
        sigaction(SIGUSR1, &action, &m_former);
    }
    ~interrupting_signal() { sigaction(SIGUSR1, &m_former, nullptr); }

private:
    struct sigaction m_former;
};

/** Standard output is a pipe of the least size while this object lives. */
class piped_standard_output {
public:
    explicit piped_standard_output(int flags = 0) {
        EXPECT_EQ(pipe2(m_ends, O_CLOEXEC), 0);
        fcntl(m_ends[1], F_SETPIPE_SZ, 4096);
        fflush(stdout);
        dup2(m_ends[1], STDOUT_FILENO);
        close(m_ends[1]);
        fcntl(STDOUT_FILENO, F_SETFL, flags);
    }

    ~piped_standard_output() {
        restore();
        close(m_ends[0]);
        clearerr(stdout);
    }

    /** Nothing more fits in; what it is filled with is none of a message's characters. */
    void fill() {
        const int flags = fcntl(STDOUT_FILENO, F_GETFL);
        fcntl(STDOUT_FILENO, F_SETFL, flags | O_NONBLOCK);
        while (write(STDOUT_FILENO, "~", 1) == 1) {
        }
        fcntl(STDOUT_FILENO, F_SETFL, flags);
    }

    std::string read_what_is_there() {
        std::string text;
        pollfd input = {m_ends[0], POLLIN, 0};
        while (poll(&input, 1, 0) > 0 && (input.revents & POLLIN) && read_some(text)) {
        }
        return text;
    }

    /** Needs restore() in another thread, or before. */
    std::string read_to_the_end() {
        std::string text;
        while (read_some(text)) {
        }
        return text;
    }

    /** The pipe has no writer any more. */
    void restore() {
        fflush(stdout);
        dup2(m_original, STDOUT_FILENO);
        close(m_original);
        m_original = -1;
    }

private:
    bool read_some(std::string& text) {
        char buffer[4096];
        const ssize_t length = read(m_ends[0], buffer, sizeof buffer);
        for (ssize_t i = 0; i < length; ++i) {
            if (buffer[i] != '~') {
                text += buffer[i];
            }
        }
        return length > 0;
    }

    int m_ends[2];
    int m_original = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
};

bool is_asleep(long thread) {
    std::ifstream stat("/proc/self/task/" + std::to_string(thread) + "/stat");
    std::string content;
    std::getline(stat, content);
    const size_t name_end = content.rfind(')');
    return name_end != std::string::npos && content[name_end + 2] == 'S';
}

/** Has a signal interrupt the given thread in a write that waits, and calls the action then. */
std::thread after_an_interruption(std::function<void()> action) {
    const pthread_t writer = pthread_self();
    const long writer_number = syscall(SYS_gettid);
    const int handled = signals_handled;
    return std::thread([=] {
        wait_until_without_loop([&] { return is_asleep(writer_number); });
        pthread_kill(writer, SIGUSR1);
        wait_until_without_loop([&] { return signals_handled > handled; });
        wait_until_without_loop([&] { return is_asleep(writer_number); });
        action();
    });
}

/** Empties the pipe while the action runs, from the moment on when it waits. */
std::string printed_against_interruption(piped_standard_output& pipe,
                                         const std::function<void()>& action) {
    std::string text;
    std::thread reader = after_an_interruption([&] { text = pipe.read_to_the_end(); });
    action();
    pipe.restore();
    reader.join();
    return text;
}

/** Gives standard output this kind of buffer while the object lives. */
class buffered_standard_output {
public:
    explicit buffered_standard_output(int mode) { setvbuf(stdout, nullptr, mode, 0); }
    ~buffered_standard_output() { setvbuf(stdout, nullptr, _IOFBF, BUFSIZ); }
};

/** A stream in memory takes the place of stdout while this object lives. */
class stdout_in_memory {
public:
    stdout_in_memory() { stdout = open_memstream(&m_text, &m_length); }
    ~stdout_in_memory() {
        fclose(stdout);
        stdout = m_original;
        free(m_text);
    }

    std::string text() const {
        fflush(stdout);
        return m_text;
    }

private:
    FILE* const m_original = stdout;
    char* m_text = nullptr;
    size_t m_length = 0;
};

double seconds_of(const std::function<void()>& action) {
    const double start = vask_object::vask_gettime(VASK_TIME_SEC);
    action();
    return vask_object::vask_gettime(VASK_TIME_SEC) - start;
}

class message_delivery : public testing::Test {
protected:
    message_delivery() { vask_object::my_pid = 812; }
    ~message_delivery() override { on_wait_for_room = nullptr; }

    interrupting_signal signal;
};

}  // namespace

extern "C" int poll(pollfd* descriptors, nfds_t count, int msec) {
    static const auto next = next_function<int(pollfd*, nfds_t, int)>("poll");
    if (count == 1 && descriptors->fd == STDOUT_FILENO && on_wait_for_room &&
        std::exchange(on_wait_for_room, nullptr)()) {
        errno = EINTR;
        return -1;
    }
    return next(descriptors, count, msec);
}

TEST_F(message_delivery, Is_not_prevented_by_a_signal) {
    piped_standard_output pipe;
    pipe.fill();
    EXPECT_EQ(printed_against_interruption(
                  pipe, [] { vask_object::vask_p("a", VASK_P_ERR, "still there\n"); }),
              "[a:812] ERR: still there\n");
}

TEST_F(message_delivery, Goes_on_where_a_signal_has_cut_it) {
    const std::string text(100000, 'x');
    piped_standard_output pipe;
    EXPECT_EQ(printed_against_interruption(
                  pipe, [&] { vask_object::vask_p("a", VASK_P_ERR, "%s\n", text.c_str()); }),
              "[a:812] ERR: " + text + "\n");
}

TEST_F(message_delivery, Comes_behind_what_the_application_has_printed) {
    log_catcher log;
    printf("one ");
    vask_object::vask_p("a", VASK_P_ERR, "two\n");
    printf("three ");
    vask_object::vask_p_header("b", VASK_P_ERR, nullptr);
    vask_object::vask_p("c", VASK_P_ERR, "four\n");
    EXPECT_EQ(log.text(), "one [a:812] ERR: two\nthree [b:812] ERR: [c:812] ERR: four\n");
}

TEST_F(message_delivery, Moves_the_position_of_a_stream_that_has_been_positioned) {
    log_catcher log;
    printf("12345");
    fseek(stdout, 2, SEEK_SET);
    fseek(stdout, 0, SEEK_END);
    vask_object::vask_p("a", VASK_P_ERR, "text\n");
    EXPECT_EQ(ftell(stdout), 5 + static_cast<long>(sizeof "[a:812] ERR: text\n" - 1));
}

TEST_F(message_delivery, Keeps_the_lines_of_threads_apart) {
    constexpr int count = 1000;
    const buffered_standard_output unbuffered(_IONBF);
    log_catcher log;
    const auto print_many = [] {
        for (int i = 0; i < count; ++i) {
            vask_object::vask_p("a", VASK_P_ERR, "%s %s\n", "one", "two");
        }
    };
    std::thread first(print_many), second(print_many);
    first.join();
    second.join();
    EXPECT_THAT(log.lines(), AllOf(SizeIs(2 * count), Each(line("ERR", "a", "one two"))));
}

TEST_F(message_delivery, Waits_for_a_standard_output_that_does_not_block) {
    const std::string text(10000, 'x');
    piped_standard_output pipe(O_NONBLOCK);
    pipe.fill();
    std::string taken;
    const std::function<bool()> take = [&] {
        taken += pipe.read_what_is_there();
        on_wait_for_room = take;
        return false;
    };
    on_wait_for_room = take;
    vask_object::vask_p("a", VASK_P_ERR, "%s\n", text.c_str());
    EXPECT_EQ(taken + pipe.read_what_is_there(), "[a:812] ERR: " + text + "\n");
}

TEST_F(message_delivery, Goes_on_waiting_when_a_signal_comes) {
    piped_standard_output pipe(O_NONBLOCK);
    pipe.fill();
    std::string taken;
    on_wait_for_room = [&] {
        on_wait_for_room = [&] {
            taken = pipe.read_what_is_there();
            return false;
        };
        return true;
    };
    vask_object::vask_p("a", VASK_P_ERR, "still there\n");
    EXPECT_EQ(taken + pipe.read_what_is_there(), "[a:812] ERR: still there\n");
}

TEST_F(message_delivery, Gives_a_message_up_that_nobody_takes_and_the_next_ones_at_once) {
    piped_standard_output pipe(O_NONBLOCK);
    pipe.fill();
    const double first =
        seconds_of([] { vask_object::vask_p("a", VASK_P_ERR, "nobody hears it\n"); });
    const double next = seconds_of([] {
        for (int i = 0; i < 100; ++i) {
            vask_object::vask_p("a", VASK_P_ERR, "nor this\n");
        }
    });
    EXPECT_GE(first, 1);
    EXPECT_LE(first, 50);
    EXPECT_LE(next, 50);
    EXPECT_TRUE(ferror(stdout));
}

TEST_F(message_delivery, Goes_on_when_somebody_takes_messages_again) {
    piped_standard_output pipe(O_NONBLOCK);
    pipe.fill();
    vask_object::vask_p("a", VASK_P_ERR, "nobody hears it\n");
    pipe.read_what_is_there();
    vask_object::vask_p("a", VASK_P_ERR, "heard\n");
    EXPECT_EQ(pipe.read_what_is_there(), "[a:812] ERR: heard\n");

    pipe.fill();
    on_wait_for_room = [&] {
        pipe.read_what_is_there();
        return false;
    };
    vask_object::vask_p("a", VASK_P_ERR, "waited for\n");
    EXPECT_EQ(pipe.read_what_is_there(), "[a:812] ERR: waited for\n");
}

TEST_F(message_delivery, Reaches_a_stream_without_a_descriptor) {
    const stdout_in_memory memory;
    printf("one ");
    vask_object::vask_p("a", VASK_P_ERR, "two\n");
    EXPECT_EQ(memory.text(), "one [a:812] ERR: two\n");
}

TEST_F(message_delivery, Fails_as_that_of_printf_on_a_closed_standard_output) {
    piped_standard_output pipe;
    close(STDOUT_FILENO);
    errno = ENOTEMPTY;
    vask_object::vask_p("a", VASK_P_ERR, "nobody hears it\n");
    EXPECT_EQ(errno, ENOTEMPTY);
    EXPECT_TRUE(ferror(stdout));
}

TEST_F(message_delivery, Needs_no_memory) {
#ifdef VASK_TEST_HAS_ADDRESS_SANITIZER
    GTEST_SKIP() << "the sanitizer ends a process that has no memory";
#endif
    const std::string text(64 << 20, 'x');
    log_catcher log;
    rlimit former;
    getrlimit(RLIMIT_AS, &former);
    long pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    const rlimit limited = {
        static_cast<rlim_t>(pages) * static_cast<rlim_t>(getpagesize()) + (16 << 20),
        former.rlim_max};
    setrlimit(RLIMIT_AS, &limited);
    vask_object::vask_p("a", VASK_P_ERR, "%s\n", text.c_str());
    setrlimit(RLIMIT_AS, &former);
    EXPECT_EQ(log.text() == "[a:812] ERR: " + text + "\n", true);
}

TEST_F(message_delivery, Ends_where_the_text_cannot_be_formatted) {
    const named_object object("a");
    log_catcher log;
    // C libraries differ in whether they print what is before it.
    std::printf("before %ls\n", L"\x110000");
    std::fflush(stdout);
    const std::string printed = log.text();
    log.clear();
    object.vask_p(VASK_P_ERR, "before %ls\n", L"\x110000");
    EXPECT_EQ(log.text(), "[a:812] ERR: " + printed);
}

TEST_F(message_delivery, Covers_names_of_any_length) {
    const std::string name(3000, 'n');
    log_catcher log;
    vask_object::vask_p(name.c_str(), VASK_P_ERR, "x\n");
    vask_object::vask_p_header(name.c_str(), VASK_P_ERR, nullptr);
    EXPECT_EQ(log.text(), "[" + name + ":812] ERR: x\n[" + name + ":812] ERR: ");
}

TEST_F(message_delivery, Covers_texts_at_the_edges_of_the_usual_room) {
    for (size_t length = 1000; length < 1050; ++length) {
        const std::string text(length, 'x');
        log_catcher log;
        vask_object::vask_p("a", VASK_P_ERR, "%s\n", text.c_str());
        vask_object::vask_p_header(text.c_str(), VASK_P_ERR, nullptr);
        ASSERT_EQ(log.text(), "[a:812] ERR: " + text + "\n[" + text + ":812] ERR: ");
    }
}

TEST_F(message_delivery, Is_not_barred_by_a_thread_that_was_cancelled_in_it) {
    piped_standard_output pipe;
    pipe.fill();
    std::atomic<long> number{0};
    std::thread writer([&] {
        number = syscall(SYS_gettid);
        vask_object::vask_p("a", VASK_P_ERR, "cancelled\n");
    });
    ASSERT_TRUE(wait_until_without_loop([&] { return number != 0 && is_asleep(number); }));
    pthread_cancel(writer.native_handle());
    writer.join();
    pipe.read_what_is_there();
    ASSERT_EQ(ftrylockfile(stdout), 0);
    funlockfile(stdout);
    vask_object::vask_p("a", VASK_P_ERR, "printed\n");
    EXPECT_EQ(pipe.read_what_is_there(), "[a:812] ERR: printed\n");
}
