// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Registering and looking up where the surroundings refuse something: a sandbox, limits of memory
// or file size, a log that nobody reads.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <stddef.h>
#include <sys/resource.h>
#include <sys/syscall.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <new>

#include "foundation/registry_member.h"
#include "support/counted_memory.h"
#include "support/sanitizers.h"
#include "vask_test/timeout_factor.h"

using namespace vask_test;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

namespace {

// What a sandbox does to a call that it does not know.
bool refuse_uncommon_calls(unsigned int answer) {
    sock_filter filter[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_fallocate, 1, 0),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_process_vm_readv, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, answer),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog program = {sizeof(filter) / sizeof(filter[0]), filter};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

size_t address_space_in_use() {
    size_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    return pages * static_cast<size_t>(sysconf(_SC_PAGESIZE));
}

bool set_soft_limit(__rlimit_resource resource, rlim_t limit) {
    rlimit both;
    if (getrlimit(resource, &both) != 0) {
        return false;
    }
    both.rlim_cur = limit;
    return setrlimit(resource, &both) == 0;
}

class registry_limits : public registry_test {
protected:
    ~registry_limits() override { allocations_left = -1; }
};

class registry_sandbox : public registry_limits,
                         public testing::WithParamInterface<unsigned int> {};

/** A standard output that takes nothing more, until the object ends. */
class full_standard_output {
public:
    full_standard_output() {
        if (pipe2(m_pipe, O_CLOEXEC) != 0) {
            std::abort();
        }
        fcntl(m_pipe[1], F_SETFL, O_NONBLOCK);
        const char bytes[4096] = {};
        while (write(m_pipe[1], bytes, sizeof(bytes)) > 0) {
        }
        fcntl(m_pipe[1], F_SETFL, 0);
    }
    ~full_standard_output() {
        close(m_pipe[0]);
        close(m_pipe[1]);
    }
    full_standard_output(const full_standard_output&) = delete;
    full_standard_output& operator=(const full_standard_output&) = delete;

    void take_over() const { dup2(m_pipe[1], STDOUT_FILENO); }

private:
    int m_pipe[2];
};

bool is_asleep(pid_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
    std::string number, name, state;
    file >> number >> name >> state;
    return state == "S";
}

}  // namespace

TEST_P(registry_sandbox, Without_uncommon_calls_changes_nothing) {
    forked_process sandboxed([this] {
        if (!refuse_uncommon_calls(GetParam())) {
            return 1;
        }
        if (!object.store_pid_to_shm(1)) {
            return 2;
        }
        return find() == registry_map{{1, vask_object::my_pid}} ? 0 : 3;
    });
    EXPECT_EQ(sandboxed.wait_for_end(), 0);
    EXPECT_THAT(log.lines(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(answers, registry_sandbox,
                         testing::Values(SECCOMP_RET_TRAP, SECCOMP_RET_ERRNO | ENOSYS,
                                         SECCOMP_RET_ERRNO | EPERM,
                                         SECCOMP_RET_ERRNO | EOPNOTSUPP));

TEST_F(registry_limits, Of_memory_end_no_process_that_looks_up) {
#ifdef VASK_TEST_HAS_ADDRESS_SANITIZER
    GTEST_SKIP() << "the sanitizer takes all address space";
#endif
    registry_object bytes("program");
    bytes.append(getppid(), 1);
    bytes.resize(size_t{65} << 20);
    bytes.set_count(1 << 22);
    // Less than a copy of the record needs, and less than two.
    for (const size_t mebibytes : {16, 96}) {
        forked_process limited([this, mebibytes] {
            return set_soft_limit(RLIMIT_AS, address_space_in_use() + (mebibytes << 20))
                       ? static_cast<int>(find().size())
                       : -1;
        });
        EXPECT_EQ(limited.wait_for_end(), mebibytes > 64 ? 1 : 0) << mebibytes;
    }
    EXPECT_THAT(log.lines(),
                ElementsAre(error("looker", "Failed to call mremap @ find_stored_pid_from_shm")));
}

TEST_F(registry_limits, Of_memory_fail_a_registration_and_keep_nobody_else_from_it) {
#ifdef VASK_TEST_HAS_ADDRESS_SANITIZER
    GTEST_SKIP() << "the sanitizer takes all address space";
#endif
    registry_object bytes("program");
    bytes.append(getppid(), 1);
    bytes.resize(size_t{65} << 20);
    bytes.set_count(1 << 22);
    for (const size_t mebibytes : {16, 96}) {
        forked_process limited([this, mebibytes] {
            if (!set_soft_limit(RLIMIT_AS, address_space_in_use() + (mebibytes << 20))) {
                return 1;
            }
            return object.store_pid_to_shm(2) ? 2 : 0;
        });
        EXPECT_EQ(limited.wait_for_end(), 0) << mebibytes;
    }
    EXPECT_THAT(log.lines(), Each(error("program", "Failed to call mremap @ store_pid_to_shm")));
    EXPECT_EQ(bytes.sequence(), 0U);
    EXPECT_EQ(library_lock::value(), 1);
}

TEST_F(registry_limits, Of_every_allocation_leave_a_lookup_what_it_has_found) {
    registry_object("program").fill(20, my_pid);
    const registry_map all = find();
    ASSERT_EQ(all.size(), 20U);
    for (int allocations = 0; allocations <= 20; ++allocations) {
        allocations_left = allocations;
        const registry_map found = find("program");
        allocations_left = -1;
        EXPECT_LE(found.size(), static_cast<size_t>(allocations));
        EXPECT_GE(found.size() + 2, static_cast<size_t>(allocations));
        for (const auto& entry : found) {
            EXPECT_EQ(all.at(entry.first), entry.second);
        }
    }
}

TEST_F(registry_limits, Of_every_allocation_leave_no_lock_and_no_odd_sequence_behind) {
    const registry_member member("program", 1);
    int allocations = 0;
    for (bool registered = false; !registered; ++allocations) {
        ASSERT_LT(allocations, 100);
        log.clear();
        allocations_left = allocations;
        registered = object.store_pid_to_shm(2);
        allocations_left = -1;
        EXPECT_EQ(library_lock::value(), 1);
        EXPECT_EQ(object.shm_lock_sem, nullptr);
        EXPECT_EQ(registry_object("program").sequence() % 2, 0U);
        if (!registered) {
            EXPECT_THAT(log.lines(),
                        ElementsAre(error("program", "Failed to call mremap @ store_pid_to_shm")));
        }
    }
    EXPECT_GT(allocations, 3);
    EXPECT_THAT(find(), ElementsAre(Pair(1, member.pid()), Pair(2, my_pid)));
}

// What the log has written by then is far below the limit.
TEST_F(registry_limits, Of_file_size_fail_a_registration_without_a_signal) {
    registry_object bytes("program");
    bytes.fill(1000, getppid());
    const std::vector<unsigned char> before = bytes.bytes();
    forked_process limited([this] {
        signal(SIGXFSZ, SIG_DFL);
        return set_soft_limit(RLIMIT_FSIZE, 8192) && !object.store_pid_to_shm(2000) ? 0 : 1;
    });
    EXPECT_EQ(limited.wait_for_end(), 0);
    EXPECT_THAT(log.lines(),
                ElementsAre(error("program", "Failed to call ftruncate @ store_pid_to_shm")));
    EXPECT_EQ(bytes.bytes(), before);
    EXPECT_EQ(library_lock::value(), 1);
}

TEST_F(registry_limits, Of_a_log_that_nobody_reads_hold_up_no_other_process) {
    const registry_member member("program", 1);
    const full_standard_output full;
    const shared_value<std::atomic<bool>> is_about_to_register;
    const forked_process refused([this, &full, &is_about_to_register] {
        full.take_over();
        *is_about_to_register = true;
        object.store_pid_to_shm(1);
        return 0;
    });
    ASSERT_TRUE(wait_until_without_loop(
        [&] { return is_about_to_register->load() && is_asleep(refused.pid()); }));

    EXPECT_EQ(library_lock::value(), 1);
    EXPECT_EQ(registry_object("program").sequence() % 2, 0U);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_THAT(find(), ElementsAre(Pair(1, member.pid())));
    EXPECT_TRUE(object.store_pid_to_shm(2));
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    EXPECT_LT(taken.count(), 4 * timeout_factor());
    EXPECT_TRUE(refused.is_running());
    EXPECT_THAT(log.lines(), IsEmpty());
}
