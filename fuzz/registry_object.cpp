// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "support/registry_object.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "foundation/pid_array_bytes.h"
#include "foundation/shared_names.h"
#include "instant_waits.h"
#include "support/interpose.h"
#include "support/shown_clock.h"
#include "target.h"
#include "vask_object.h"

using vask_fuzz::input;
using vask_fuzz::require;
using vask_test::next_file_function;

namespace {

constexpr char registry_name[] = "fuzz";
constexpr std::size_t most_bytes = 3 * 4096;

/** Changes the object at will, also between two calls of the library for it. */
class stranger {
public:
    explicit stranger(input& input) : m_input(input) {}

    void act() {
        const rest resting(m_acts);
        switch (m_input.below(8)) {
            case 0:
                write();
                break;
            case 1:
                m_object.resize(m_input.number<std::uint16_t>() % most_bytes);
                break;
            case 2:
                m_object.set_sequence(m_input.byte());
                break;
            case 3:
                m_object.set_count(m_input.number<std::int32_t>());
                break;
            case 4:
                fill();
                break;
            case 5:
                append();
                break;
            default:
                break;
        }
    }

    /** Acts before each call from now on, until it is told to rest. */
    void act_at_each_call(bool acts) { m_acts = acts; }

    static void before_call() {
        if (the_stranger != nullptr && the_stranger->m_acts && the_stranger->m_input.has_more()) {
            the_stranger->act();
        }
    }

    static stranger* the_stranger;

private:
    /** What it does itself is no call of the library. */
    struct rest {
        explicit rest(bool& acts) : m_acts(acts), m_before(acts) { acts = false; }
        ~rest() { m_acts = m_before; }
        bool& m_acts;
        const bool m_before;
    };

    void write() {
        const auto offset = static_cast<off_t>(m_input.number<std::uint16_t>() % most_bytes);
        const std::string bytes = m_input.take(m_input.byte() % 33);
        require(pwrite(m_object.fd(), bytes.data(), bytes.size(), offset) ==
                    static_cast<ssize_t>(bytes.size()),
                "a stranger may write");
    }

    void fill() {
        const std::size_t count = m_input.number<std::uint16_t>() % 600;
        m_object.fill(count, process());
        m_object.set_sequence(m_object.sequence() & ~1u);
    }

    void append() {
        const std::int32_t pid = process();
        const std::uint64_t key = m_input.byte() % 4;
        // Where the count lies, there is no end to append to.
        if (m_object.size() < registry_object::header_size) {
            m_object.resize(registry_object::size_when_new);
        }
        if (m_object.count() >= 0 && static_cast<std::size_t>(m_object.count()) < most_bytes) {
            m_object.append(pid, key);
        }
    }

    std::int32_t process() {
        const std::int32_t processes[] = {getpid(), getppid(), 1, 0, -1, 4194304};
        return processes[m_input.below(6)];
    }

    input& m_input;
    registry_object m_object{registry_name};
    bool m_acts = false;
};

stranger* stranger::the_stranger = nullptr;

class member : public vask_object {
public:
    member() { obj_name = registry_name; }
};

void look_up(const member& member) {
    for (const auto& found : member.find_stored_pid_from_shm(registry_name)) {
        require(vask_object::is_process_alive(found.second), "only living processes are found");
    }
}

using entry = std::pair<std::int32_t, std::uint64_t>;

/** All that the object has room for. */
std::vector<entry> entries_of(const registry_object& object) {
    std::vector<entry> entries;
    const std::size_t room = entries_in(object.size());
    for (std::size_t i = 0; i < room && static_cast<std::int64_t>(i) < object.count(); ++i) {
        entries.emplace_back(object.pid(i), object.key(i));
    }
    return entries;
}

bool is_of_another(const entry& entry) {
    return entry.first > 0 && entry.first != getpid() && kill(entry.first, 0) == 0;
}

std::map<unsigned long, int> found_in(const std::vector<entry>& entries) {
    std::map<unsigned long, int> found;
    for (const entry& entry : entries) {
        if (is_expressible_key(entry.second)) {
            found[static_cast<unsigned long>(entry.second)] = entry.first;
        }
    }
    return found;
}

void register_undisturbed(member& member, unsigned long key) {
    const registry_object object(registry_name);
    std::vector<entry> expected;
    for (const entry& entry : entries_of(object)) {
        if (is_of_another(entry)) {
            expected.push_back(entry);
        }
    }
    const bool is_free = key == 0 || found_in(expected).count(key) == 0;
    if (is_free) {
        expected.emplace_back(getpid(), key);
    }
    require(member.store_pid_to_shm(key) == is_free, "what is left alone registers a free key");
    require(object.sequence() % 2 == 0, "the record is at rest");
    require(entry_offset(static_cast<std::size_t>(object.count())) <= object.size(),
            "all entries have room");
    require(entries_of(object) == expected,
            "the new entry is behind all others that live, and they stay as they are");
    require(member.find_stored_pid_from_shm(registry_name) == found_in(expected),
            "what is registered is found");
}

}  // namespace

extern "C" {

ssize_t pread(int fd, void* bytes, size_t size, off_t offset) {
    stranger::before_call();
    return next_file_function<ssize_t(int, void*, size_t, off_t)>("pread")(fd, bytes, size, offset);
}

ssize_t pwrite(int fd, const void* bytes, size_t size, off_t offset) {
    stranger::before_call();
    return next_file_function<ssize_t(int, const void*, size_t, off_t)>("pwrite")(fd, bytes, size,
                                                                                  offset);
}

int fstat(int fd, struct stat* info) noexcept {
    stranger::before_call();
    return vask_test::next_fstat(fd, info);
}

int ftruncate(int fd, off_t size) noexcept {
    stranger::before_call();
    return next_file_function<int(int, off_t)>("ftruncate")(fd, size);
}

}  // extern "C"

void set_up_target() {
    vask_fuzz::output_of_library::discard();
}

void run_target(input& input) {
    // A record that stays odd is waited for, by this clock.
    vask_test::show_clock(vask_test::leaping_clock(0.5));
    {
        stranger stranger(input);
        stranger::the_stranger = &stranger;
        member member;
        for (int i = 0; i < 24 && input.has_more(); ++i) {
            const std::size_t step = input.below(6);
            const unsigned long key = input.has_more() && step >= 3 ? input.byte() % 4 : 0;
            vask_fuzz::instant_waits::begin();
            stranger.act_at_each_call(step == 2 || step == 4);
            if (step <= 1) {
                stranger.act();
            } else if (step == 2) {
                look_up(member);
            } else if (step == 4) {
                member.store_pid_to_shm(key);
            } else {
                register_undisturbed(member, key);
            }
            stranger.act_at_each_call(false);
            require(!vask_fuzz::instant_waits::have_no_end(), "whoever waits comes back");
        }
        stranger::the_stranger = nullptr;
    }
    vask_object::destroy_sem(library_lock_name);
    unlink((std::string(shm_directory) + registry_prefix + registry_name).c_str());
}
