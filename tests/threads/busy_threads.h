// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_BUSY_THREADS_H
#define VASK_TEST_BUSY_THREADS_H

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace vask_test {

/**
 * Threads of a host that go on with work of their own until the object ends: each starts programs,
 * opens inheritable descriptors, logs, sets the environment, decodes, looks up and asks for memory,
 * in turn.
 */
class busy_threads {
public:
    static constexpr int count = 8;

    /** Variables that were set before, because a new one would move the environment under the
     *  others' hands. */
    busy_threads();
    ~busy_threads();
    busy_threads(const busy_threads&) = delete;
    busy_threads& operator=(const busy_threads&) = delete;

    /** Waits until each thread has done everything that often, since it was made. */
    void wait_for_rounds(int rounds) const;

    /** What has not come out as it should. */
    int failures() const { return m_failures; }

private:
    void work(int number);
    void do_a_round(int number);
    void expect(bool holds);

    std::atomic<bool> m_stops{false};
    std::atomic<int> m_failures{0};
    std::vector<std::atomic<int>> m_rounds;
    std::vector<std::thread> m_threads;
};

/** Runs a function in so many threads at once. */
void in_threads(int count, const std::function<void(int number)>& function);

}  // namespace vask_test

#endif
