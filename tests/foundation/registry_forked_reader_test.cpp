// A program that forks without exec keeps the recorded process id of its parent, and its memory
// has the same addresses.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/syscall.h>
#include <time.h>

#include <functional>

#include "foundation/registry_member.h"
#include "support/interpose.h"

namespace {

// Then everything happens in one instant, and each process has a processor of its own.
bool is_time_stopped = false;

class registry_forked_reader : public registry_test {
protected:
    // Lookups in a child that does not know its process id. What the parent does meanwhile is
    // repeated until the child has ended.
    int count_wrong_lookups(
        const std::string& name, const registry_map& expected, int lookups,
        const std::function<void()>& meanwhile = [] {}) {
        const int recorded = vask_object::my_pid;
        const shared_value<std::atomic<int>> wrong;
        forked_process child([&] {
            vask_object::my_pid = recorded;
            for (int i = 0; i < lookups; ++i)
                *wrong += find(name) == expected ? 0 : 1;
            return 0;
        });
        while (child.is_running())
            meanwhile();
        EXPECT_EQ(child.wait_for_end(), 0);
        return *wrong;
    }
};

}  // namespace

extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept {
    const auto result = static_cast<int>(syscall(SYS_clock_gettime, clock, time));
    if (is_time_stopped)
        *time = {1, 0};
    return result;
}

extern "C" int sched_getcpu() noexcept {
    return is_time_stopped ? getpid() : vask_test::next_function<int()>("sched_getcpu")();
}

TEST_F(registry_forked_reader, Finds_what_its_parent_finds) {
    registry_object("program").fill(100, my_pid);
    EXPECT_EQ(count_wrong_lookups("program", find(), 10), 0);
}

TEST_F(registry_forked_reader, Finds_all_of_a_registry_of_several_pages) {
    registry_object("program").fill(1000, my_pid);
    EXPECT_EQ(count_wrong_lookups("program", find(), 10), 0);
}

TEST_F(registry_forked_reader, Is_not_misled_by_what_its_parent_maps_at_the_same_address) {
    registry_object("program").append(my_pid, 1);
    registry_object("other").append(my_pid, 2);
    const registry_map expected = find("program");
    EXPECT_EQ(count_wrong_lookups("program", expected, 5000, [this] { find("other"); }), 0);
}

TEST_F(registry_forked_reader, Is_not_misled_by_what_its_parent_maps_at_the_same_instant) {
    registry_object("program").append(my_pid, 1);
    registry_object("other").append(my_pid, 2);
    const registry_map expected = find("program");
    is_time_stopped = true;
    EXPECT_EQ(count_wrong_lookups("program", expected, 5000, [this] { find("other"); }), 0);
    is_time_stopped = false;
}

TEST_F(registry_forked_reader, Is_not_misled_by_a_view_that_its_parent_has_left_open) {
    registry_object("program").append(my_pid, 1);
    registry_object other("other");
    other.append(my_pid, 2);
    const registry_map expected = find("program");

    // Where the child's view will be, the parent has another one.
    void* hole = mmap(nullptr, 4096, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    munmap(hole, 4096);
    const int recorded = vask_object::my_pid;
    const shared_value<std::atomic<bool>> may_read;
    const shared_value<std::atomic<int>> wrong;
    forked_process child([&] {
        vask_object::my_pid = recorded;
        vask_test::wait_until_without_loop([&] { return may_read->load(); });
        for (int i = 0; i < 100; ++i)
            *wrong += find("program") == expected ? 0 : 1;
        return 0;
    });
    void* view = mmap(hole, 4096, PROT_READ, MAP_SHARED, other.fd(), 0);
    *may_read = true;
    EXPECT_EQ(child.wait_for_end(), 0);
    EXPECT_EQ(*wrong, 0);
    munmap(view, 4096);
}
