// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_BUSY_THREADS_H
#define VASK_TEST_BUSY_THREADS_H

#include <atomic>
#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace vask_test {

/**
 * Threads of a host that go on with work of their own until the object ends: each starts programs
 * and ends them, opens inheritable descriptors, logs, sets the environment, makes directories and
 * deletes them, decodes, looks up, takes the library's lock, uses the record, shared memory and
 * semaphores, in turn.
 */
class busy_threads {
public:
    static constexpr int count = 8;

    /** Maps the record. Sets the variables, because a new one would move the environment under the
     *  others' hands. */
    busy_threads();
    /** Removes the record, and what the threads have shared with others. */
    ~busy_threads();
    busy_threads(const busy_threads&) = delete;
    busy_threads& operator=(const busy_threads&) = delete;

    /** Waits until each thread has done everything that often, since it was made. */
    void wait_for_rounds(int rounds) const;

    /** What has not come out as it should, by name. */
    std::multiset<std::string> failures() const;

private:
    void work(int number);
    void do_a_round(int number);
    void expect(bool holds, const char* name);

    std::atomic<bool> m_stops{false};
    mutable std::mutex m_mutex;
    std::multiset<std::string> m_failures;
    std::string m_directory;
    std::vector<std::atomic<int>> m_rounds;
    std::vector<std::thread> m_threads;
};

/** Takes a named semaphore, gives it back and closes it. False also if another thread of this
 *  process had it meanwhile. */
bool take_turn_with_semaphore(const std::string& name);

/** Maps a shared object in a context of its own, writes to it and lets it go. False also if
 * somebody else had its semaphore meanwhile. */
bool take_turn_with_shared_object(const std::string& name);

/** Takes the library's lock by an object of its own. False also if another thread of this process
 *  had it meanwhile. */
bool take_turn_with_library_lock();

/** Runs a function in so many threads at once. */
void in_threads(int count, const std::function<void(int number)>& function);

}  // namespace vask_test

#endif
