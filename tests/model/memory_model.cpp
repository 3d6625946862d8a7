// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "model/memory_model.h"

#include <cstdint>
#include <cstdlib>

namespace vask_test {

namespace {

using events = std::uint64_t;  // a set of events, by their numbers

struct event {
    step what;
    int thread;
    events before = 0;  // what happens before it
    int source = -1;    // of a read: the event that it reads; -1 for the initial value
};

events only(int number) {
    return events{1} << number;
}

bool is_write(const step& what) {
    return what.kind == step::write || what.kind == step::release_write;
}

bool is_read(const step& what) {
    return what.kind == step::read || what.kind == step::acquire_read;
}

class execution {
public:
    execution(const std::vector<steps>& threads, const std::vector<int>& initial,
              const std::function<void(const std::vector<int>&)>& visit)
        : m_initial(initial), m_visit(visit) {
        for (int thread = 0; thread < static_cast<int>(threads.size()); ++thread) {
            for (const step& what : threads[thread]) {
                m_events.push_back({what, thread});
            }
        }
        if (m_events.size() > 64) {
            std::abort();
        }
    }

    void complete_from(int number) {
        if (number == static_cast<int>(m_events.size())) {
            m_visit(m_values);
            return;
        }
        event& next = m_events[number];
        if (!is_read(next.what)) {
            next.before = before_by_order_or_fence(number);
            complete_from(number + 1);
            return;
        }
        for (int source = -1; source < number; ++source) {
            if (source == -1 || writes(source, next.what.location)) {
                try_source(number, source);
            }
        }
    }

private:
    bool writes(int number, int location) const {
        return is_write(m_events[number].what) && m_events[number].what.location == location;
    }

    void try_source(int number, int source) {
        event& read = m_events[number];
        read.source = source;
        read.before = before_by_order_or_fence(number);
        if (read.what.kind == step::acquire_read) {
            read.before |= released_by(source);
        }
        if (is_coherent(number)) {
            m_values.push_back(source == -1 ? m_initial[read.what.location]
                                            : m_events[source].what.value);
            complete_from(number + 1);
            m_values.pop_back();
        }
    }

    // What the thread has done before, and with an acquire fence what its reads have brought.
    events before_by_order_or_fence(int number) const {
        const event& next = m_events[number];
        events result = 0;
        for (int earlier = 0; earlier < number; ++earlier) {
            const event& one = m_events[earlier];
            if (one.thread != next.thread) {
                continue;
            }
            result |= one.before | only(earlier);
            if (next.what.kind == step::acquire_fence && is_read(one.what)) {
                result |= released_by(one.source);
            }
        }
        return result;
    }

    // What happens before the reading of a write that is acquired: the write's own past if it
    // releases, otherwise that of the last release fence before it.
    events released_by(int write) const {
        if (write == -1) {
            return 0;
        }
        const event& written = m_events[write];
        if (written.what.kind == step::release_write) {
            return written.before | only(write);
        }
        for (int fence = write - 1; fence >= 0 && m_events[fence].thread == written.thread;
             --fence) {
            if (m_events[fence].what.kind == step::release_fence) {
                return m_events[fence].before | only(fence);
            }
        }
        return 0;
    }

    // Whether a read sees neither less than what was written or read before it.
    bool is_coherent(int number) const {
        const event& read = m_events[number];
        for (int earlier = 0; earlier < number; ++earlier) {
            const event& one = m_events[earlier];
            if ((read.before & only(earlier)) == 0 || one.what.location != read.what.location) {
                continue;
            }
            const int seen = is_write(one.what) ? earlier : is_read(one.what) ? one.source : -1;
            if (read.source < seen) {
                return false;
            }
        }
        return true;
    }

    const std::vector<int>& m_initial;
    const std::function<void(const std::vector<int>&)>& m_visit;
    std::vector<event> m_events;
    std::vector<int> m_values;
};

}  // namespace

steps without(const steps& thread, const std::string& site) {
    steps result;
    for (step one : thread) {
        if (one.site != site) {
            result.push_back(one);
        } else if (is_write(one) || is_read(one)) {
            one.kind = is_write(one) ? step::write : step::read;
            result.push_back(one);
        }
    }
    return result;
}

void for_each_execution(const std::vector<steps>& threads, const std::vector<int>& initial,
                        const std::function<void(const std::vector<int>&)>& visit) {
    execution(threads, initial, visit).complete_from(0);
}

}  // namespace vask_test
