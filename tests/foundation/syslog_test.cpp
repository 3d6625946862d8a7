// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "support/forked_process.h"
#include "support/log_socket.h"
#include "support/named_object.h"
#include "vask_test/log_catcher.h"
#include "vask_test/main_loop.h"
#include "vask_test/resource_count.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;

namespace {

/** How a process ends that a thread forks and that logs one line. */
class forking_thread {
public:
    forking_thread() : m_thread([this] { m_status = fork_one(); }) {}
    ~forking_thread() { m_thread.join(); }

    bool is_over() const { return m_status != unknown; }
    int status() const { return m_status; }

private:
    static constexpr int unknown = 1000;

    static int fork_one() {
        return forked_process([] {
                   alarm(30);
                   vask_object::vask_p("child", VASK_P_ERR, "hello");
                   return 0;
               })
            .wait_for_end();
    }

    std::atomic<int> m_status{unknown};
    std::thread m_thread;
};

bool is_asleep(int thread) {
    std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
    const std::string text(std::istreambuf_iterator<char>(file), {});
    return text.find(") S ") != std::string::npos;
}

/** A thread that logs and cannot, because the daemon's queue is full. */
class waiting_thread {
public:
    explicit waiting_thread(const log_socket& daemon) : m_daemon(daemon) {
        daemon.fill();
        m_thread = std::thread([this] {
            m_id = vask_object::gettid();
            vask_object::vask_p("busy", VASK_P_ERR, "hello");
            m_is_over = true;
        });
        EXPECT_TRUE(wait_until_without_loop([this] { return m_id != 0 && is_asleep(m_id); }));
    }

    void send(int signal) { pthread_kill(m_thread.native_handle(), signal); }

    std::string finish() {
        const std::string all = m_daemon.read_until([this] { return m_is_over.load(); });
        m_thread.join();
        return all;
    }

private:
    const log_socket& m_daemon;
    std::atomic<int> m_id{0};
    std::atomic<bool> m_is_over{false};
    std::thread m_thread;
};

/** A datagram of facility "user"; its time is not looked at. */
testing::Matcher<std::string> sent(int level, const std::string& name, const std::string& text) {
    const int user_facility = 1 << 3;
    return MatchesRegex("<" + std::to_string(user_facility | level) +
                        ">[A-Z][a-z]+ [ 0-9][0-9] [0-9:]{8} " + name + "\\[" +
                        std::to_string(getpid()) + "\\]: " + text);
}

}  // namespace

TEST_F(syslog_route, Takes_messages_with_name_process_id_and_level_and_nothing_is_printed) {
    const log_socket daemon;
    const named_object object("player");
    log_catcher log;
    object.vask_p(VASK_P_ERR, "Failed to send command %d: %s\n", 7, "gone");
    vask_object::vask_p("vask", VASK_P_INFO, "%s", "done");
    EXPECT_THAT(daemon.datagrams(),
                ElementsAre(sent(VASK_P_ERR, "player", "Failed to send command 7: gone\n"),
                            sent(VASK_P_INFO, "vask", "done")));
    EXPECT_EQ(log.text(), "");
}

TEST_F(syslog_route, Takes_each_level_as_the_priority) {
    const log_socket daemon;
    vask_object::print_msg_level = VASK_P_DBG;
    for (int level = VASK_P_EMERG; level <= VASK_P_DBG; ++level) {
        vask_object::vask_p("a", static_cast<vask_print_level>(level), "x");
    }
    EXPECT_THAT(
        daemon.datagrams(),
        ElementsAre(sent(0, "a", "x"), sent(1, "a", "x"), sent(2, "a", "x"), sent(3, "a", "x"),
                    sent(4, "a", "x"), sent(5, "a", "x"), sent(6, "a", "x"), sent(7, "a", "x")));
}

TEST_F(syslog_route, Takes_no_suppressed_messages) {
    const log_socket daemon;
    const named_object object("a");
    object.vask_p(VASK_P_DBG, "dropped\n");
    vask_object::vask_p("a", VASK_P_DBG, "dropped\n");
    EXPECT_THAT(daemon.datagrams(), IsEmpty());
}

TEST_F(syslog_route, Takes_no_header_whatever_the_flags) {
    const log_socket daemon;
    vask_object::print_flags = VASK_P_FLAG_TIME | VASK_P_FLAG_ADDR;
    vask_object::vask_p("a", VASK_P_ERR, "x");
    EXPECT_THAT(daemon.datagrams(), ElementsAre(sent(VASK_P_ERR, "a", "x")));
}

TEST_F(syslog_route, Falls_back_to_the_console_when_there_is_no_daemon) {
    const int console = open("/dev/console", O_RDONLY | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_GE(console, 0);
    vask_object::vask_p("player", VASK_P_ERR, "gone");
    char buffer[256] = "";
    EXPECT_GT(read(console, buffer, sizeof buffer - 1), 0);
    close(console);
    EXPECT_EQ(std::string(buffer), "player[" + std::to_string(getpid()) + "]: gone\r\n");
}

TEST_F(syslog_route, Is_closed_after_each_message) {
    const log_socket daemon;
    const resource_count before = resource_count::take();
    vask_object::vask_p("a", VASK_P_ERR, "x");
    EXPECT_EQ(before.difference(resource_count::take()), "");
    EXPECT_THAT(daemon.datagrams(), testing::SizeIs(1));
}

// Each thread's text is its object's name.
TEST_F(syslog_route, Gives_the_messages_of_every_thread_their_own_name) {
    constexpr int messages = 500;
    const log_socket daemon;
    std::atomic<int> unfinished{4};
    std::vector<std::thread> threads;
    for (const char* name : {"one", "two", "three", "four"}) {
        threads.emplace_back([name, &unfinished] {
            for (int i = 0; i < messages; ++i) {
                vask_object::vask_p(name, VASK_P_ERR, "%s", name);
            }
            --unfinished;
        });
    }
    int mixed = 0;
    // The daemon's queue is short, and threads wait for it.
    for (bool is_over = false; !is_over;) {
        is_over = unfinished == 0;
        for (const std::string& datagram : daemon.datagrams()) {
            const std::string text = datagram.substr(datagram.rfind(' ') + 1);
            mixed += datagram.find(" " + text + "[") == std::string::npos ? 1 : 0;
        }
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(mixed, 0);
}

TEST_F(syslog_route, Is_used_by_a_process_that_is_forked_while_a_thread_waits_for_the_daemon) {
    const log_socket daemon;
    waiting_thread logs(daemon);
    const forking_thread forks;
    const std::string all = daemon.read_until([&] { return forks.is_over(); }) + logs.finish();
    EXPECT_EQ(forks.status(), 0);
    EXPECT_THAT(all, HasSubstr("child["));
}

TEST_F(syslog_route, Lets_a_signal_handler_fork_on_the_thread_that_waits_for_the_daemon) {
    const log_socket daemon;
    waiting_thread logs(daemon);
    static std::atomic<int> status;
    status = -1;
    struct sigaction action = {};
    action.sa_flags = SA_RESTART;
    action.sa_handler = [](int) {
        const pid_t pid = fork();
        if (pid == 0) {
            _exit(0);
        }
        int found = -1;
        waitpid(pid, &found, 0);
        status = found;
    };
    sigaction(SIGUSR1, &action, nullptr);
    logs.send(SIGUSR1);
    EXPECT_TRUE(wait_until_without_loop([] { return status == 0; }));
    logs.finish();
}

TEST_F(syslog_route, Leaves_errno_alone) {
    const named_object object("a");
    errno = ENOTEMPTY;
    object.vask_p(VASK_P_ERR, "nobody listens\n");
    const int after_member = errno;
    errno = ENOTEMPTY;
    vask_object::vask_p("a", VASK_P_ERR, "nobody listens\n");
    const int after_static = errno;
    EXPECT_EQ(after_member, ENOTEMPTY);
    EXPECT_EQ(after_static, ENOTEMPTY);
}

TEST_F(syslog_route, Is_chosen_anew_for_each_message) {
    const log_socket daemon;
    log_catcher log;
    vask_object::vask_p("a", VASK_P_ERR, "sent");
    unsetenv("VASK_SYSLOG");
    vask_object::vask_p("a", VASK_P_ERR, "printed\n");
    setenv("VASK_SYSLOG", "1", 1);
    vask_object::vask_p("a", VASK_P_ERR, "sent again");
    EXPECT_THAT(daemon.datagrams(),
                ElementsAre(sent(VASK_P_ERR, "a", "sent"), sent(VASK_P_ERR, "a", "sent again")));
    EXPECT_THAT(log.lines(), ElementsAre(line("ERR", "a", "printed")));
}

TEST_F(syslog_route, Is_chosen_by_exactly_1) {
    const log_socket daemon;
    log_catcher log;
    for (const char* value : {"11", "yes", "", "0", " 1", "1 "}) {
        setenv("VASK_SYSLOG", value, 1);
        vask_object::vask_p("a", VASK_P_ERR, "'%s'\n", value);
    }
    EXPECT_THAT(daemon.datagrams(), IsEmpty());
    EXPECT_THAT(log.lines(), ElementsAre(line("ERR", "a", "'11'"), line("ERR", "a", "'yes'"),
                                         line("ERR", "a", "''"), line("ERR", "a", "'0'"),
                                         line("ERR", "a", "' 1'"), line("ERR", "a", "'1 '")));
}
