// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "support/named_object.h"
#include "support/private_mounts.h"
#include "vask_test/log_catcher.h"
#include "vask_test/resource_count.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

namespace {

/** An empty /dev that only this thread sees: the C library then talks to the test alone. */
class private_dev {
public:
    private_dev()
        : m_mounted(enter_private_mounts() &&
                    mount("tmpfs", "/dev", "tmpfs", 0, "mode=0755") == 0) {}
    ~private_dev() {
        if (m_mounted) {
            umount2("/dev", MNT_DETACH);
        }
    }

    bool is_mounted() const { return m_mounted; }

private:
    const bool m_mounted;
};

/** What the daemon would receive. */
class log_socket {
public:
    log_socket() : m_socket(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        strcpy(address.sun_path, "/dev/log");
        EXPECT_EQ(bind(m_socket, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    }
    ~log_socket() { close(m_socket); }

    std::vector<std::string> datagrams() const {
        std::vector<std::string> result;
        char buffer[8192];
        ssize_t length;
        while ((length = recv(m_socket, buffer, sizeof buffer, 0)) >= 0) {
            result.emplace_back(buffer, static_cast<size_t>(length));
        }
        return result;
    }

private:
    const int m_socket;
};

class syslog_route : public testing::Test {
protected:
    void SetUp() override {
        if (!m_dev.is_mounted()) {
            GTEST_SKIP() << "needs the right to mount";
        }
        setenv("VASK_SYSLOG", "1", 1);
    }

    const private_dev m_dev;
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
