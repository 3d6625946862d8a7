// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Programs that are started, as applications are, instead of forked tests.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <spawn.h>

#include "foundation/registry_member.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

namespace {

class started_program {
public:
    started_program(const std::string& name, const std::string& key) {
        int input[2];
        if (pipe2(input, O_CLOEXEC) != 0) {
            std::abort();
        }
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, input[0], STDIN_FILENO);
        const std::string path = std::string(VASK_TEST_PROGRAM_DIR) + "/registry_program";
        std::string arguments[] = {path, name, key};
        char* argv[] = {arguments[0].data(), arguments[1].data(), arguments[2].data(), nullptr};
        if (posix_spawn(&m_pid, path.c_str(), &actions, nullptr, argv, environ) != 0) {
            std::abort();
        }
        posix_spawn_file_actions_destroy(&actions);
        close(input[0]);
        m_input = input[1];
    }
    ~started_program() {
        if (m_input >= 0) {
            end();
        }
    }
    started_program(const started_program&) = delete;
    started_program& operator=(const started_program&) = delete;

    pid_t pid() const { return m_pid; }

    /** Its exit status. */
    int end() {
        close(m_input);
        m_input = -1;
        int status = 0;
        waitpid(m_pid, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }

private:
    pid_t m_pid = -1;
    int m_input = -1;
};

class registry_program : public registry_test {
protected:
    bool wait_for_lines(size_t count) {
        return wait_until_without_loop([this, count] { return log.lines().size() >= count; });
    }
};

}  // namespace

TEST_F(registry_program, Is_found_while_it_runs) {
    started_program program("program", "0x2a");
    ASSERT_TRUE(wait_for_lines(1));
    EXPECT_THAT(log.lines(), ElementsAre(line("", "", "registered")));
    EXPECT_THAT(find(), ElementsAre(Pair(42, program.pid())));
    EXPECT_EQ(program.end(), 0);
    EXPECT_THAT(find(), IsEmpty());
}

TEST_F(registry_program, Is_told_from_another_by_its_key) {
    started_program first("program", "1");
    ASSERT_TRUE(wait_for_lines(1));
    started_program second("program", "2");
    ASSERT_TRUE(wait_for_lines(2));
    EXPECT_THAT(find(), ElementsAre(Pair(1, first.pid()), Pair(2, second.pid())));
}

TEST_F(registry_program, Is_refused_the_key_of_another) {
    started_program first("program", "1");
    ASSERT_TRUE(wait_for_lines(1));
    started_program second("program", "1");
    ASSERT_TRUE(wait_for_lines(3));
    EXPECT_THAT(log.lines(), ElementsAre(line("", "", "registered"), in_use("program", "1"),
                                         line("", "", "refused")));
    EXPECT_EQ(second.end(), 1);
    EXPECT_THAT(find(), ElementsAre(Pair(1, first.pid())));
}
