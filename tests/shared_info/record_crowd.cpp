// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "shared_info/record_crowd.h"

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "support/forked_process.h"
#include "vask_object.h"
#include "vask_shared_info.h"
#include "vask_test/main_loop.h"

namespace {

constexpr int crowd_size = 8;

/** A rotation that tells who has set it, and how many that one had set by then. */
struct stamp {
    static constexpr int count_bits = 28;

    int writer;
    int count;

    static stamp of(int rotation) {
        return {rotation >> count_bits, rotation & ((1 << count_bits) - 1)};
    }
    vask_monitor_rotation_type rotation() const {
        return static_cast<vask_monitor_rotation_type>((writer << count_bits) | count);
    }
};

/** What the others know about one process: the stamp before and after it sets the rotation. */
struct alignas(64) progress {
    std::atomic<int> begun;
    std::atomic<int> done;
    std::atomic<int> foreign_reads;
    std::atomic<bool> is_ready;
};

struct crowd_state {
    std::atomic<bool> may_start;
    std::atomic<bool> must_end;
    std::array<progress, crowd_size> all;
};

enum result { fine, not_set, not_written_by_anybody, already_replaced };

class member {
public:
    member(crowd_state& state, int number) : m_state(state), m_number(number) {}

    result set_and_read() {
        progress& own = m_state.all[static_cast<size_t>(m_number)];
        std::array<int, crowd_size> done_before;
        for (size_t i = 0; i < crowd_size; ++i) {
            done_before[i] = m_state.all[i].done;
        }

        const stamp written = {m_number, own.done + 1};
        own.begun = written.count;
        if (!vask_object::set_monitor_rotation(written.rotation())) {
            return not_set;
        }
        own.done = written.count;

        const int rotation = vask_object::get_monitor_rotation();
        const stamp read = stamp::of(rotation);
        if (rotation < 0 || read.writer >= crowd_size || read.count == 0) {
            return not_written_by_anybody;
        }
        const auto writer = static_cast<size_t>(read.writer);
        if (read.count > m_state.all[writer].begun) {
            return not_written_by_anybody;
        }
        if (read.writer == m_number) {
            return read.count == written.count ? fine : already_replaced;
        }
        ++own.foreign_reads;
        // It was there before, and was replaced by ours.
        return read.count <= done_before[writer] ? already_replaced : fine;
    }

    result run() {
        m_state.all[static_cast<size_t>(m_number)].is_ready = true;
        while (!m_state.may_start) {
            std::this_thread::yield();
        }
        result last = fine;
        do {
            last = set_and_read();
        } while (last == fine && !m_state.must_end);
        return last;
    }

private:
    crowd_state& m_state;
    const int m_number;
};

}  // namespace

void expect_no_value_lost_in_a_crowd(double seconds) {
    const shared_value<crowd_state> state;
    std::vector<std::unique_ptr<forked_process>> processes;
    for (int i = 0; i < crowd_size; ++i) {
        processes.push_back(
            std::make_unique<forked_process>([&state, i] { return member(*state, i).run(); }));
    }
    ASSERT_TRUE(vask_test::wait_until_without_loop([&] {
        for (const progress& one : state->all) {
            if (!one.is_ready) {
                return false;
            }
        }
        return true;
    }));
    state->may_start = true;
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    state->must_end = true;
    int foreign_reads = 0;
    for (size_t i = 0; i < crowd_size; ++i) {
        EXPECT_EQ(processes[i]->wait_for_end(), fine) << i;
        EXPECT_GT(state->all[i].done, 0) << i;
        foreign_reads += state->all[i].foreign_reads;
    }
    EXPECT_GT(foreign_reads, 0);
    const stamp last = stamp::of(vask_object::get_monitor_rotation());
    ASSERT_LT(last.writer, crowd_size);
    EXPECT_EQ(last.count, state->all[static_cast<size_t>(last.writer)].done);
}
