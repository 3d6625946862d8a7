// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "foundation/shm_reserve.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "foundation/unique_fd.h"
#include "support/forked_process.h"
#include "support/interpose.h"
#include "support/refused_call.h"
#include "support/tiny_dev_shm.h"

using namespace vask_test;

namespace {

constexpr int not_permitted = 77;
constexpr off_t mebibyte = 1024 * 1024;

// A kernel that a signal interrupts in every call that is longer than this, and that undoes it.
off_t longest_uninterrupted = 0;

int reserved_calls = 0;

/** A shared-memory object without a name. */
class object {
public:
    explicit object(off_t size)
        : m_fd(shm_open("/test_reserved", O_RDWR | O_CREAT | O_EXCL, 0600)) {
        shm_unlink("/test_reserved");
        if (ftruncate(fd(), size) != 0) {
            std::abort();
        }
    }

    int fd() const { return m_fd.get(); }
    off_t size() const { return info().st_size; }
    off_t memory() const { return info().st_blocks * 512; }

    std::string text_at(off_t offset, size_t length) const {
        std::string text(length, '?');
        return pread(fd(), &text[0], length, offset) == static_cast<ssize_t>(length) ? text : "";
    }
    void write_text(off_t offset, const std::string& text) const {
        if (pwrite(fd(), text.data(), text.size(), offset) != static_cast<ssize_t>(text.size())) {
            std::abort();
        }
    }

private:
    struct stat info() const {
        struct stat info;
        if (fstat(fd(), &info) != 0) {
            std::abort();
        }
        return info;
    }

    const unique_fd m_fd;
};

class shm_reserve : public testing::Test {
protected:
    ~shm_reserve() override { longest_uninterrupted = 0; }

    static int run(const std::function<int()>& work) {
        forked_process process(work);
        return process.wait_for_end();
    }

    static int run_in_sandbox(int error, const std::function<int()>& work) {
        return run(
            [&] { return refuse_system_call(SYS_fallocate, error) ? work() : not_permitted; });
    }

    static void limit_files_to(rlim_t size) {
        const rlimit limit = {size, size};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
};

}  // namespace

extern "C" int fallocate(int fd, int mode, off_t offset, off_t length) {
    ++reserved_calls;
    if (longest_uninterrupted != 0 && length > longest_uninterrupted) {
        errno = EINTR;
        return -1;
    }
    return next_file_function<int(int, int, off_t, off_t)>("fallocate")(fd, mode, offset, length);
}

TEST_F(shm_reserve, Finds_memory_for_all_bytes) {
    const object one(3 * mebibyte + 5);
    EXPECT_EQ(one.memory(), 0);
    EXPECT_EQ(reserve_shm(one.fd(), 0, one.size()), 0);
    EXPECT_GE(one.memory(), one.size());
    EXPECT_EQ(one.size(), 3 * mebibyte + 5);
}

TEST_F(shm_reserve, Finds_memory_behind_the_end_and_leaves_the_size_alone) {
    const object one(0);
    EXPECT_EQ(reserve_shm(one.fd(), 0, mebibyte), 0);
    EXPECT_GE(one.memory(), mebibyte);
    EXPECT_EQ(one.size(), 0);
    EXPECT_EQ(set_shm_size(one.fd(), mebibyte), 0);
    EXPECT_GE(one.memory(), mebibyte);
}

TEST_F(shm_reserve, Finds_no_memory_for_bytes_that_were_not_asked_for) {
    const object one(2 * mebibyte);
    EXPECT_EQ(reserve_shm(one.fd(), mebibyte, 2 * mebibyte), 0);
    EXPECT_LE(one.memory(), mebibyte);
    EXPECT_EQ(reserve_shm(one.fd(), 5, 5), 0);
    EXPECT_LE(one.memory(), mebibyte);
}

TEST_F(shm_reserve, Leaves_the_content_as_it_is) {
    const object one(mebibyte);
    one.write_text(0, "first");
    one.write_text(5000, "second");
    EXPECT_EQ(reserve_shm(one.fd(), 0, mebibyte), 0);
    EXPECT_EQ(one.text_at(0, 5), "first");
    EXPECT_EQ(one.text_at(5000, 6), "second");
}

TEST_F(shm_reserve, Comes_to_its_end_although_signals_undo_every_long_call) {
    longest_uninterrupted = 200000;
    const object one(8 * mebibyte);
    EXPECT_EQ(reserve_shm(one.fd(), 0, one.size()), 0);
    EXPECT_GE(one.memory(), one.size());
}

TEST_F(shm_reserve, Writes_where_a_sandbox_refuses_the_reservation) {
    for (const int error : {ENOSYS, EPERM, EOPNOTSUPP}) {
        const int result = run_in_sandbox(error, [] {
            const object one(mebibyte + 5);
            one.write_text(4100, "content");
            if (reserve_shm(one.fd(), 0, one.size()) != 0) {
                return 1;
            }
            if (one.memory() < one.size() || one.size() != mebibyte + 5) {
                return 2;
            }
            return one.text_at(4100, 7) == "content" && one.text_at(0, 4100) == std::string(4100, 0)
                       ? 0
                       : 3;
        });
        if (result == not_permitted) {
            GTEST_SKIP() << "no filters of system calls";
        }
        EXPECT_EQ(result, 0) << error;
    }
}

TEST_F(shm_reserve, Writes_behind_the_end_where_a_sandbox_refuses_the_reservation) {
    const int result = run_in_sandbox(EPERM, [] {
        const object one(10);
        one.write_text(0, "ten bytes!");
        if (reserve_shm(one.fd(), 10, mebibyte) != 0 || set_shm_size(one.fd(), mebibyte) != 0) {
            return 1;
        }
        return one.memory() >= mebibyte && one.text_at(0, 11) == std::string("ten bytes!\0", 11)
                   ? 0
                   : 2;
    });
    if (result == not_permitted) {
        GTEST_SKIP() << "no filters of system calls";
    }
    EXPECT_EQ(result, 0);
}

TEST_F(shm_reserve, Fails_where_there_is_no_memory) {
    const int result = run([] {
        if (!enter_tiny_dev_shm(4)) {
            return not_permitted;
        }
        const object one(mebibyte);
        return reserve_shm(one.fd(), 0, mebibyte);
    });
    if (result == not_permitted) {
        GTEST_SKIP() << "no private mounts";
    }
    EXPECT_EQ(result, ENOSPC);
}

TEST_F(shm_reserve, Takes_nothing_where_there_is_not_enough_for_all) {
    const int result = run([] {
        if (!enter_tiny_dev_shm(400)) {
            return not_permitted;
        }
        const object one(8 * mebibyte);
        reserved_calls = 0;
        return reserve_shm(one.fd(), 0, one.size()) == ENOSPC ? reserved_calls : -1;
    });
    if (result == not_permitted) {
        GTEST_SKIP() << "no private mounts";
    }
    EXPECT_EQ(result, 0);
}

TEST_F(shm_reserve, Counts_the_memory_that_an_object_has_already) {
    const int result = run([] {
        if (!enter_tiny_dev_shm(400)) {
            return not_permitted;
        }
        const object one(300 * sysconf(_SC_PAGESIZE));
        return reserve_shm(one.fd(), 0, one.size()) == 0 ? reserve_shm(one.fd(), 0, one.size()) : 1;
    });
    if (result == not_permitted) {
        GTEST_SKIP() << "no private mounts";
    }
    EXPECT_EQ(result, 0);
}

TEST_F(shm_reserve, Fails_where_there_is_no_memory_and_the_reservation_is_refused) {
    const int result = run_in_sandbox(ENOSYS, [] {
        if (!enter_tiny_dev_shm(4)) {
            return not_permitted;
        }
        const object one(mebibyte);
        return reserve_shm(one.fd(), 0, mebibyte);
    });
    if (result == not_permitted) {
        GTEST_SKIP() << "no private mounts, or no filters of system calls";
    }
    EXPECT_EQ(result, ENOSPC);
}

TEST_F(shm_reserve, Is_not_killed_by_the_limit_of_a_file) {
    EXPECT_EQ(run([] {
                  const object one(0);
                  limit_files_to(5000);
                  return set_shm_size(one.fd(), 6000) == EFBIG &&
                                 reserve_shm(one.fd(), 0, 6000) == EFBIG
                             ? 0
                             : 1;
              }),
              0);
}

TEST_F(shm_reserve, Is_not_killed_by_the_limit_of_a_file_where_the_reservation_is_refused) {
    const int result = run_in_sandbox(ENOSYS, [] {
        const object one(0);
        limit_files_to(5000);
        return reserve_shm(one.fd(), 0, 9000) == EFBIG ? 0 : 1;
    });
    if (result == not_permitted) {
        GTEST_SKIP() << "no filters of system calls";
    }
    EXPECT_EQ(result, 0);
}

TEST_F(shm_reserve, Leaves_a_signal_of_the_limit_that_waits_already) {
    EXPECT_EQ(run([] {
                  sigset_t signals;
                  sigemptyset(&signals);
                  sigaddset(&signals, SIGXFSZ);
                  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
                  raise(SIGXFSZ);
                  const object one(0);
                  limit_files_to(5000);
                  if (set_shm_size(one.fd(), 6000) != EFBIG) {
                      return 1;
                  }
                  pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
                  return 2;
              }),
              -SIGXFSZ);
}
