// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdarg.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <time.h>

#include <cerrno>
#include <fstream>
#include <functional>
#include <utility>

#include "support/call_fault.h"
#include "support/interpose.h"
#include "support/library_lock_state.h"
#include "support/shown_clock.h"

using namespace vask_test;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

constexpr int wait_really = -2;

// Takes the place of a wait for the lock: 0 is success, an errno is a failure. A time-out is that
// of all short waits of an attempt.
std::function<int(sem_t*, const timespec&)> wait_for_lock;

int real_time_fails(clockid_t clock, timespec* time) {
    return clock == CLOCK_REALTIME ? fail_to_read_clock() : read_system_clock(clock, time);
}

constexpr int short_waits_of_an_attempt = 10;
int short_waits_that_time_out = 0;

// Counts as taken while those time out.
const sem_t* locked_sem = nullptr;

// The calls that can fail: fstat, on the lock, and sem_open when it may create.
call_fault fault;

// Nobody finds the lock's file, but the C library does.
bool file_is_elsewhere = false;

int refused_file_locks = 0;

// Runs before a semaphore's name is removed.
std::function<void()> before_unlinking;

// Runs once, between a look at the semaphore's file and opening the semaphore.
std::function<void()> before_opening;

bool operator<=(const timespec& a, const timespec& b) {
    return a.tv_sec < b.tv_sec || (a.tv_sec == b.tv_sec && a.tv_nsec <= b.tv_nsec);
}

timespec monotonic_time() {
    timespec now;
    read_system_clock(CLOCK_MONOTONIC, &now);
    return now;
}

timespec plus_msec(timespec time, long msec) {
    time.tv_nsec += msec * 1000000;
    time.tv_sec += time.tv_nsec / 1000000000;
    time.tv_nsec %= 1000000000;
    return time;
}

class library_lock_test : public testing::Test {
protected:
    ~library_lock_test() override {
        wait_for_lock = nullptr;
        show_clock(nullptr);
        fault = call_fault();
        file_is_elsewhere = false;
    }

    // The results of the next waits; later ones are real.
    void script_waits(const std::vector<int>& results) {
        wait_for_lock = [this, results](sem_t*, const timespec& deadline) {
            deadlines.push_back(deadline);
            return deadlines.size() <= results.size() ? results[deadlines.size() - 1] : wait_really;
        };
    }

    void make_semaphore_file(size_t size) {
        std::ofstream(library_lock::path) << std::string(size, '\0');
    }

    // The first wait finds the semaphore removed.
    void expect_a_new_lock_after_a_removal() {
        int waits = 0;
        wait_for_lock = [&waits](sem_t*, const timespec&) {
            if (++waits == 1) {
                sem_unlink(library_lock::name);
            }
            return wait_really;
        };
        EXPECT_TRUE(object.shm_lock());
        EXPECT_EQ(waits, 2);
        EXPECT_EQ(library_lock::value(), 0);
        EXPECT_THAT(log.lines(), IsEmpty());
    }

    std::vector<timespec> deadlines;
    shared_objects_removed cleanup;
    log_catcher log;
    named_object object{"object"};
};

}  // namespace

extern "C" int sem_clockwait(sem_t* sem, clockid_t clock, const timespec* deadline) {
    if (short_waits_that_time_out > 0) {
        --short_waits_that_time_out;
        errno = ETIMEDOUT;
        return -1;
    }
    const int result = wait_for_lock ? wait_for_lock(sem, *deadline) : wait_really;
    if (result == wait_really) {
        return next_time_function<int(sem_t*, clockid_t, const timespec*)>("sem_clockwait")(
            sem, clock, deadline);
    }
    if (result == ETIMEDOUT) {
        short_waits_that_time_out = short_waits_of_an_attempt - 1;
        locked_sem = sem;
    }
    errno = result;
    return result == 0 ? 0 : -1;
}

// After a time-out that is only said there is one look at the semaphore.
extern "C" int sem_trywait(sem_t* sem) noexcept {
    if (sem == std::exchange(locked_sem, short_waits_that_time_out > 0 ? locked_sem : nullptr)) {
        errno = EAGAIN;
        return -1;
    }
    return next_function<int(sem_t*)>("sem_trywait")(sem);
}

extern "C" sem_t* sem_open(const char* name, int flags, ...) {
    if ((flags & O_CREAT) == 0) {
        if (const auto intrude = std::exchange(before_opening, nullptr)) {
            intrude();
        }
        return next_function<sem_t*(const char*, int, ...)>("sem_open")(name, flags);
    }
    if (fault.fails("sem_open")) {
        return SEM_FAILED;
    }
    va_list args;
    va_start(args, flags);
    const auto mode = va_arg(args, mode_t);
    const auto value = va_arg(args, unsigned int);
    va_end(args);
    return next_function<sem_t*(const char*, int, ...)>("sem_open")(name, flags, mode, value);
}

extern "C" int sem_unlink(const char* name) noexcept {
    if (before_unlinking) {
        before_unlinking();
    }
    return next_function<int(const char*)>("sem_unlink")(name);
}

extern "C" int fstat(int fd, struct stat* info) noexcept {
    if (fault.fails_on("fstat", fd, library_lock::path)) {
        return -1;
    }
    return next_fstat(fd, info);
}

extern "C" int open(const char* path, int flags, ...) {
    if (file_is_elsewhere && strcmp(path, library_lock::path) == 0) {
        errno = ENOENT;
        return -1;
    }
    va_list args;
    va_start(args, flags);
    const auto mode = (flags & O_CREAT) != 0 ? va_arg(args, mode_t) : 0;
    va_end(args);
    return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, mode));
}

extern "C" int flock(int fd, int operation) noexcept {
    if ((operation & LOCK_EX) != 0 && refused_file_locks > 0) {
        --refused_file_locks;
        errno = EWOULDBLOCK;
        return -1;
    }
    return next_function<int(int, int)>("flock")(fd, operation);
}

TEST_F(library_lock_test, Is_taken_and_given_back) {
    EXPECT_TRUE(object.shm_lock());
    EXPECT_NE(object.shm_lock_sem, nullptr);
    EXPECT_EQ(library_lock::value(), 0);
    object.shm_unlock();
    EXPECT_EQ(object.shm_lock_sem, nullptr);
    EXPECT_EQ(library_lock::value(), 1);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(library_lock_test, Can_be_taken_again_and_again) {
    for (int i = 0; i < 100; ++i) {
        ASSERT_TRUE(object.shm_lock());
        object.shm_unlock();
    }
    EXPECT_EQ(library_lock::value(), 1);
}

TEST_F(library_lock_test, Belongs_to_its_maker_and_can_be_seen_by_all) {
    const mode_t before = umask(0);
    ASSERT_TRUE(object.shm_lock());
    umask(before);
    object.shm_unlock();
    struct stat info;
    ASSERT_EQ(stat(library_lock::path, &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0644U);
}

TEST_F(library_lock_test, Is_not_taken_twice_by_one_object) {
    ASSERT_TRUE(object.shm_lock());
    sem_t* const held = object.shm_lock_sem;
    EXPECT_FALSE(object.shm_lock());
    EXPECT_EQ(object.shm_lock_sem, held);
    EXPECT_EQ(library_lock::value(), 0);
    EXPECT_THAT(log.lines(), ElementsAre(line("ERR", "object", "Recursive lock request")));
    object.shm_unlock();
    EXPECT_EQ(library_lock::value(), 1);
}

TEST_F(library_lock_test, Cannot_be_given_back_without_a_hold) {
    object.shm_unlock();
    EXPECT_EQ(library_lock::value(), library_lock::missing);
    ASSERT_TRUE(object.shm_lock());
    object.shm_unlock();
    object.shm_unlock();
    EXPECT_EQ(library_lock::value(), 1);
    EXPECT_THAT(log.lines(), ElementsAre(line("WARN", "object", "No shm lock held."),
                                         line("WARN", "object", "No shm lock held.")));
}

TEST_F(library_lock_test, Is_given_back_by_the_destructor) {
    {
        named_object holder("holder");
        ASSERT_TRUE(holder.shm_lock());
        EXPECT_EQ(library_lock::value(), 0);
    }
    EXPECT_EQ(library_lock::value(), 1);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(library_lock_test, Excludes_another_object_of_the_process) {
    named_object holder("holder");
    ASSERT_TRUE(holder.shm_lock());
    wait_for_lock = [&holder](sem_t* sem, const timespec&) {
        EXPECT_EQ(sem_trywait(sem), -1);
        holder.shm_unlock();
        return wait_really;
    };
    EXPECT_TRUE(object.shm_lock());
    EXPECT_EQ(holder.shm_lock_sem, nullptr);
    EXPECT_EQ(library_lock::value(), 0);
    object.shm_unlock();
    EXPECT_THAT(log.lines(), IsEmpty());
}

// Ten of them make the 5 seconds.
TEST_F(library_lock_test, Is_waited_for_half_a_second_at_a_time) {
    script_waits({});
    const timespec before = monotonic_time();
    ASSERT_TRUE(object.shm_lock());
    const timespec after = monotonic_time();
    object.shm_unlock();
    ASSERT_THAT(deadlines, SizeIs(1));
    EXPECT_TRUE(plus_msec(before, 500) <= deadlines[0]);
    EXPECT_TRUE(deadlines[0] <= plus_msec(after, 500));
}

TEST_F(library_lock_test, Keeps_its_deadline_when_a_signal_interrupts_the_wait) {
    script_waits({EINTR, EINTR, EINTR});
    EXPECT_TRUE(object.shm_lock());
    object.shm_unlock();
    ASSERT_THAT(deadlines, SizeIs(4));
    for (const timespec& deadline : deadlines) {
        EXPECT_EQ(deadline.tv_sec, deadlines[0].tv_sec);
        EXPECT_EQ(deadline.tv_nsec, deadlines[0].tv_nsec);
    }
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(library_lock_test, Is_broken_after_the_time_out_and_made_anew) {
    library_lock::create(0);
    sem_t* const abandoned = sem_open(library_lock::name, 0);
    const ino_t identity = library_lock::identity();
    script_waits({ETIMEDOUT});
    EXPECT_TRUE(object.shm_lock());
    EXPECT_NE(library_lock::identity(), identity);
    EXPECT_EQ(library_lock::value(), 0);
    EXPECT_THAT(log.lines(), ElementsAre(library_lock::forced("object")));
    object.shm_unlock();
    EXPECT_EQ(library_lock::value(), 1);
    EXPECT_EQ(sem_trywait(abandoned), -1);
    sem_close(abandoned);
}

TEST_F(library_lock_test, Is_broken_when_the_file_lock_becomes_free) {
    library_lock::create(0);
    const ino_t identity = library_lock::identity();
    script_waits({ETIMEDOUT});
    refused_file_locks = 3;
    EXPECT_TRUE(object.shm_lock());
    EXPECT_EQ(refused_file_locks, 0);
    EXPECT_NE(library_lock::identity(), identity);
    EXPECT_THAT(log.lines(), ElementsAre(library_lock::forced("object")));
}

TEST_F(library_lock_test, Is_broken_although_a_stranger_keeps_the_file_locked) {
    library_lock::create(0);
    const ino_t identity = library_lock::identity();
    const int stranger = open(library_lock::path, O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(flock(stranger, LOCK_EX), 0);
    script_waits({ETIMEDOUT});
    EXPECT_TRUE(object.shm_lock());
    close(stranger);
    EXPECT_NE(library_lock::identity(), identity);
    EXPECT_THAT(log.lines(), ElementsAre(library_lock::forced("object")));
}

TEST_F(library_lock_test, Gets_a_new_deadline_for_every_attempt) {
    library_lock::create(0);
    timespec second_attempt = {};
    wait_for_lock = [this, &second_attempt](sem_t*, const timespec& deadline) {
        deadlines.push_back(deadline);
        if (deadlines.size() == 1) {
            second_attempt = monotonic_time();
            return ETIMEDOUT;
        }
        return wait_really;
    };
    EXPECT_TRUE(object.shm_lock());
    object.shm_unlock();
    ASSERT_THAT(deadlines, SizeIs(2));
    EXPECT_TRUE(plus_msec(second_attempt, 500) <= deadlines[1]);
}

TEST_F(library_lock_test, Is_broken_as_often_as_it_takes) {
    script_waits(std::vector<int>(50, ETIMEDOUT));
    EXPECT_TRUE(object.shm_lock());
    object.shm_unlock();
    EXPECT_THAT(log.lines(), testing::AllOf(SizeIs(50), Each(library_lock::forced("object"))));
    EXPECT_EQ(library_lock::value(), 1);
}

TEST_F(library_lock_test, That_somebody_else_has_broken_and_made_anew_is_not_broken_again) {
    library_lock::create(0);
    ino_t identity_of_new = 0;
    wait_for_lock = [this, &identity_of_new](sem_t*, const timespec& deadline) {
        deadlines.push_back(deadline);
        if (deadlines.size() > 1) {
            return wait_really;
        }
        library_lock::replace(1);
        identity_of_new = library_lock::identity();
        return ETIMEDOUT;
    };
    EXPECT_TRUE(object.shm_lock());
    EXPECT_EQ(library_lock::identity(), identity_of_new);
    EXPECT_EQ(library_lock::value(), 0);
    object.shm_unlock();
    EXPECT_EQ(library_lock::value(), 1);
}

TEST_F(library_lock_test, That_is_removed_during_the_wait_is_made_anew) {
    library_lock::create(1);
    expect_a_new_lock_after_a_removal();
}

TEST_F(library_lock_test, That_is_broken_lets_nobody_in_when_it_is_posted_late) {
    library_lock::create(0);
    sem_t* const broken = sem_open(library_lock::name, 0);
    std::vector<sem_t*> waited_for;
    wait_for_lock = [&waited_for, broken](sem_t* sem, const timespec&) {
        waited_for.push_back(sem);
        if (waited_for.size() == 1) {
            library_lock::replace(0);
            sem_post(broken);
            return wait_really;
        }
        EXPECT_EQ(sem_trywait(sem), -1);
        sem_post(sem);
        return wait_really;
    };
    EXPECT_TRUE(object.shm_lock());
    EXPECT_THAT(waited_for, SizeIs(2));
    EXPECT_EQ(library_lock::value(), 0);
    EXPECT_THAT(log.lines(), IsEmpty());

    // The late post goes on to whoever else still waits for the broken one.
    EXPECT_EQ(sem_trywait(broken), 0);
    sem_close(broken);
}

TEST_F(library_lock_test, That_was_broken_is_given_back_without_harm_to_the_new_one) {
    named_object slow("slow");
    ASSERT_TRUE(slow.shm_lock());
    script_waits({ETIMEDOUT});
    ASSERT_TRUE(object.shm_lock());
    slow.shm_unlock();
    EXPECT_EQ(slow.shm_lock_sem, nullptr);
    EXPECT_EQ(library_lock::value(), 0);
    object.shm_unlock();
    EXPECT_EQ(library_lock::value(), 1);
    EXPECT_THAT(log.lines(), ElementsAre(library_lock::forced("object")));
}

TEST_F(library_lock_test, Is_not_taken_when_the_wait_fails) {
    library_lock::create(1);
    script_waits({EINVAL});
    EXPECT_FALSE(object.shm_lock());
    EXPECT_EQ(object.shm_lock_sem, nullptr);
    EXPECT_EQ(library_lock::value(), 1);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(library_lock_test, Stays_with_its_holder_when_the_wait_of_another_fails) {
    ASSERT_TRUE(object.shm_lock());
    named_object other("other");
    script_waits({EINVAL});
    EXPECT_FALSE(other.shm_lock());
    EXPECT_EQ(library_lock::value(), 0);
    object.shm_unlock();
    EXPECT_EQ(library_lock::value(), 1);
}

TEST_F(library_lock_test, Is_open_no_longer_than_it_is_held) {
    ASSERT_TRUE(object.shm_lock());
    EXPECT_TRUE(library_lock::is_open());
    object.shm_unlock();
    EXPECT_FALSE(library_lock::is_open());
}

TEST_F(library_lock_test, Is_closed_before_it_is_broken) {
    library_lock::create(0);
    script_waits({ETIMEDOUT, ETIMEDOUT});
    int open_when_broken = 0;
    before_unlinking = [&open_when_broken] { open_when_broken += library_lock::is_open(); };
    ASSERT_TRUE(object.shm_lock());
    before_unlinking = nullptr;
    EXPECT_EQ(open_when_broken, 0);
    object.shm_unlock();
    EXPECT_FALSE(library_lock::is_open());
}

TEST_F(library_lock_test, Is_not_left_open_when_it_is_not_taken) {
    bool is_open_while_waiting = false;
    wait_for_lock = [&is_open_while_waiting](sem_t*, const timespec&) {
        is_open_while_waiting = library_lock::is_open();
        return EINVAL;
    };
    EXPECT_FALSE(object.shm_lock());
    EXPECT_TRUE(is_open_while_waiting);
    EXPECT_FALSE(library_lock::is_open());

    show_clock(real_time_fails);
    EXPECT_FALSE(object.shm_lock());
    EXPECT_FALSE(library_lock::is_open());
}

TEST_F(library_lock_test, Is_not_taken_when_the_clock_cannot_be_read) {
    show_clock(real_time_fails);
    EXPECT_FALSE(object.shm_lock());
    EXPECT_EQ(object.shm_lock_sem, nullptr);
    show_clock(nullptr);
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_TRUE(object.shm_lock());
    object.shm_unlock();
}

TEST_F(library_lock_test, Is_not_taken_when_its_file_has_another_size) {
    // Of the other word size are those of half the size, or twice.
    for (const size_t size : {size_t{0}, sizeof(sem_t) / 2, sizeof(sem_t) - 1, sizeof(sem_t) + 1,
                              sizeof(sem_t) * 2, size_t{4096}}) {
        make_semaphore_file(size);
        EXPECT_FALSE(object.shm_lock()) << size;
        EXPECT_EQ(object.shm_lock_sem, nullptr);
        EXPECT_EQ(std::filesystem::file_size(library_lock::path), size);
    }
    EXPECT_THAT(log.lines(), IsEmpty());
}

// Given back, it would end the process.
TEST_F(library_lock_test, Is_not_taken_when_its_file_holds_other_bytes) {
    std::ofstream(library_lock::path) << std::string(sizeof(sem_t), 'D');
    EXPECT_FALSE(object.shm_lock());
    EXPECT_EQ(object.shm_lock_sem, nullptr);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(library_lock_test, Is_not_taken_when_something_else_has_its_name) {
    std::filesystem::create_directory(library_lock::path);
    EXPECT_FALSE(object.shm_lock());
    std::filesystem::remove(library_lock::path);
    std::filesystem::create_symlink("/dev/zero", library_lock::path);
    EXPECT_FALSE(object.shm_lock());
    std::filesystem::remove(library_lock::path);
    ASSERT_EQ(mkfifo(library_lock::path, 0644), 0);
    EXPECT_FALSE(object.shm_lock());
    std::filesystem::remove(library_lock::path);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(library_lock_test, Is_not_taken_when_it_cannot_be_made) {
    fault = {"sem_open", ENOSPC};
    EXPECT_FALSE(object.shm_lock());
    EXPECT_EQ(object.shm_lock_sem, nullptr);
    EXPECT_EQ(library_lock::value(), library_lock::missing);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(library_lock_test, Is_not_taken_when_its_file_cannot_be_measured) {
    library_lock::create(1);
    fault = {"fstat", EIO};
    EXPECT_FALSE(object.shm_lock());
    EXPECT_EQ(object.shm_lock_sem, nullptr);
    EXPECT_EQ(library_lock::value(), 1);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(library_lock_test, That_is_replaced_while_it_is_opened_is_opened_anew) {
    library_lock::create(0);
    ino_t identity_of_new = 0;
    before_opening = [&identity_of_new] {
        library_lock::replace(1);
        identity_of_new = library_lock::identity();
    };
    EXPECT_TRUE(object.shm_lock());
    EXPECT_EQ(library_lock::identity(), identity_of_new);
    EXPECT_EQ(library_lock::value(), 0);
    object.shm_unlock();
    EXPECT_EQ(library_lock::value(), 1);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(library_lock_test, That_disappears_while_it_is_opened_is_made_anew) {
    library_lock::create(0);
    before_opening = [] { sem_unlink(library_lock::name); };
    EXPECT_TRUE(object.shm_lock());
    EXPECT_EQ(library_lock::value(), 0);
    object.shm_unlock();
    EXPECT_EQ(library_lock::value(), 1);
}

TEST_F(library_lock_test, Is_taken_and_given_back_where_its_file_is_elsewhere) {
    file_is_elsewhere = true;
    ASSERT_TRUE(object.shm_lock());
    EXPECT_EQ(library_lock::value(), 0);
    object.shm_unlock();
    EXPECT_EQ(library_lock::value(), 1);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(library_lock_test, Is_broken_where_its_file_is_elsewhere) {
    library_lock::create(0);
    const ino_t identity = library_lock::identity();
    file_is_elsewhere = true;
    script_waits({ETIMEDOUT});
    ASSERT_TRUE(object.shm_lock());
    EXPECT_NE(library_lock::identity(), identity);
    EXPECT_EQ(library_lock::value(), 0);
    EXPECT_THAT(log.lines(), ElementsAre(library_lock::forced("object")));
}

TEST_F(library_lock_test,
       That_is_removed_during_the_wait_is_made_anew_where_its_file_is_elsewhere) {
    library_lock::create(1);
    file_is_elsewhere = true;
    expect_a_new_lock_after_a_removal();
}

// Whoever reads the line may be slow, and the lock in other hands by then.
TEST_F(library_lock_test, Is_broken_before_that_is_told) {
    library_lock::create(0);
    script_waits({ETIMEDOUT});
    std::string logged_when_broken = "never";
    before_unlinking = [&] { logged_when_broken = log.text(); };
    ASSERT_TRUE(object.shm_lock());
    before_unlinking = nullptr;
    EXPECT_EQ(logged_when_broken, "");
}

TEST_F(library_lock_test, Of_another_user_is_not_taken) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only the superuser can act as another user";
    }
    library_lock::create(1);
    ASSERT_EQ(seteuid(65534), 0);
    EXPECT_FALSE(object.shm_lock());
    ASSERT_EQ(seteuid(0), 0);
    EXPECT_EQ(library_lock::value(), 1);
    EXPECT_THAT(log.lines(), IsEmpty());
}

// The sum of the clock and a wait can be a whole second, which no part of a second may be.
TEST_F(library_lock_test, Is_waited_for_to_the_end_of_a_whole_second) {
    show_clock([](clockid_t clock, timespec* time) {
        const int result = read_system_clock(clock, time);
        time->tv_nsec = 500000000;
        return result;
    });
    script_waits({ETIMEDOUT});
    library_lock::create(0);
    EXPECT_TRUE(object.shm_lock());
    ASSERT_THAT(deadlines, testing::Not(IsEmpty()));
    EXPECT_EQ(deadlines.front().tv_nsec, 0);
    object.shm_unlock();
}

// A registration waits a tenth of a second at a time, so fifty of them make the 5 seconds.
TEST_F(library_lock_test, Of_a_registration_is_broken_after_fifty_short_waits) {
    library_lock::create(0);
    script_waits(std::vector<int>(5, ETIMEDOUT));
    size_t attempts = 0;
    int short_waits_left = -1;
    before_unlinking = [&] {
        attempts = deadlines.size();
        short_waits_left = short_waits_that_time_out;
    };
    EXPECT_TRUE(object.store_pid_to_shm(4711));
    before_unlinking = nullptr;
    EXPECT_EQ(attempts, 5u);
    EXPECT_EQ(short_waits_left, 0);
}
