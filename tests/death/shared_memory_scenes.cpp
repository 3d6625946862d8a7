// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <fcntl.h>
#include <semaphore.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <list>

#include "death/scene_lists.h"
#include "foundation/registry_member.h"
#include "support/shared_objects.h"

namespace vask_test {

namespace {

constexpr double lock_recovery_sec = 5;
constexpr double reader_patience_sec = 5;

constexpr unsigned long victims_key = 50;
constexpr unsigned long victims_former_key = 49;
constexpr unsigned long robbers_key = 77;

class registry_scene : public scene {
public:
    void rob() override {
        named_object robber("program");
        robber.store_pid_to_shm(robbers_key);
    }

    double promised_sec(const fault_plan& plan) const override {
        // A waiter that cannot see whether it breaks the dead lock or a new one waits once more.
        const bool may_wait_twice = plan.wanted == fault::no_memory;
        return m_is_abandoned ? (may_wait_twice ? 2 : 1) * lock_recovery_sec / plan.haste : 0;
    }

    // Before a registration breaks a lock that was left behind, or ends a change.
    void look_at_once(const fault_plan& plan, aftermath& after) override {
        after.keys_of_victim = {victims_former_key, victims_key};
        after.was_abandoned = m_is_abandoned;
        for (const registry_member& member : m_members) {
            after.registered[m_next_key++] = member.pid();
        }
        if (plan.wanted == fault::rob) {
            after.registered[robbers_key] = robber;
            const std::string call = plan.call;
            after.may_overtake = call == "pwrite" || call == "ftruncate";
        }
        after.registered_at_once = after.registered;
        if (victim_lives() && m_registers_victim && plan.result == done) {
            after.registered_at_once[victims_key] = plan.victim;
        }
        after.lock_at_once = library_lock::value();
        if (has_registry()) {
            after.sequence_at_once = registry_object("program").sequence();
        }
        const double begin = monotonic_seconds();
        {
            const hurried_clock hurried;
            after.found_at_once = find_all();
        }
        after.calls.push_back(
            {"a lookup returns", monotonic_seconds() - begin, reader_patience_sec / plan.haste});
    }

    void look(const fault_plan& plan, aftermath& after) override {
        if (victim_lives() && plan.next_works) {
            after.registered[victims_key] = plan.victim;
        }
        register_next(plan, after);
        if (has_registry()) {
            const registry_object bytes("program");
            after.sequence = bytes.sequence();
            after.registry_size = bytes.size();
            after.registry_count = bytes.count();
        }
        after.library_lock = library_lock::value();
    }

protected:
    void prepare() override { m_object = std::make_unique<named_object>("program"); }
    bool do_next() override { return m_object->store_pid_to_shm(victims_key); }

    void add_members() {
        m_members.emplace_back("program", 1);
        registry_member ended("program", 60);
        m_members.emplace_back("program", 2);
        ended.end();
    }

    virtual std::map<unsigned long, int> find_all() const {
        return named_object("looker").find_stored_pid_from_shm("program");
    }

    void abandon_lock() {
        library_lock::leave_to_a_dead_holder();
        m_is_abandoned = true;
    }

    std::unique_ptr<named_object> m_object;
    bool m_registers_victim = true;

private:
    // A victim may leave an object without bytes.
    static bool has_registry() {
        const char* const path = "/dev/shm/vask_proc_pid_program";
        return std::filesystem::exists(path) &&
               std::filesystem::file_size(path) >= registry_object::header_size;
    }

    void register_next(const fault_plan& plan, aftermath& after) {
        std::list<registry_member> next;
        const double begin = monotonic_seconds();
        next.emplace_back("program", 3);
        after.calls.push_back({"the next registration returns", monotonic_seconds() - begin,
                               lock_recovery_sec / plan.haste});
        after.next_registration = next.front().is_registered();
        after.registered[3] = next.front().pid();
        after.found = find_all();
    }

    bool m_is_abandoned = false;

    std::list<registry_member> m_members;
    unsigned long m_next_key = 1;
};

class first_registration : public registry_scene {
protected:
    bool operate() override { return m_object->store_pid_to_shm(victims_key); }
};

class later_registration : public first_registration {
    void set() override { add_members(); }
    void prepare() override {
        registry_scene::prepare();
        m_object->store_pid_to_shm(victims_former_key);
    }
};

// Longer than the page that is mapped at first.
class large_registration : public first_registration {
    void set() override {
        add_members();
        registry_object bytes("program");
        for (std::uint64_t key = 0; key < 300; ++key) {
            bytes.append(1, 0);
        }
    }
    std::map<unsigned long, int> find_all() const override {
        std::map<unsigned long, int> found = first_registration::find_all();
        found.erase(0);
        return found;
    }
};

class registration_after_death : public first_registration {
    void set() override {
        add_members();
        abandon_lock();
        registry_object("program").set_sequence(7);
    }
};

class lookup : public registry_scene {
public:
    lookup() { m_registers_victim = false; }

private:
    void set() override { add_members(); }
    bool operate() override {
        return m_object->find_stored_pid_from_shm(std::string("program")).size() >= 2;
    }
};

class locking : public registry_scene {
public:
    locking() { m_registers_victim = false; }

protected:
    void set() override { add_members(); }
    bool operate() override {
        const bool is_held = m_object->shm_lock();
        if (is_held) {
            m_object->shm_unlock();
        }
        return is_held;
    }
};

class lock_recovery : public locking {
    void set() override {
        locking::set();
        abandon_lock();
    }
};

class record_scene : public scene {
public:
    void rob() override { remove_record(); }

    double promised_sec(const fault_plan&) const override { return 0; }

    // The victim's own next step would wait for ever.
    void look_at_once(const fault_plan& plan, aftermath& after) override {
        after.possible_rotations = {old_rotation, new_rotation, VASK_MONITOR_ROTATION_NOT_SET};
        after.was_reading_record = m_reads && std::string(plan.call) == "sem_post";
        free_record(after);
        measure(after);
    }

    void look(const fault_plan&, aftermath& after) override {
        free_record(after);
        const shared_value<std::atomic<int>> rotation;
        *rotation = -1;
        forked_process other([&rotation] {
            *rotation = vask_object::get_monitor_rotation();
            return 0;
        });
        const double begin = monotonic_seconds();
        wait_until_without_loop([&] { return *rotation != -1; }, 20000);
        after.calls.push_back({"another process reads the record", monotonic_seconds() - begin, 0});
        after.rotation = *rotation;
        measure(after);
    }

protected:
    static constexpr int old_rotation = 2;
    static constexpr int new_rotation = 1;

    void make_record() {
        forked_process([] {
            return vask_object::set_monitor_rotation(VASK_MONITOR_ROTATION_2) ? 0 : 1;
        }).wait_for_end();
    }

    bool do_next() override {
        return vask_object::get_monitor_rotation() != VASK_MONITOR_ROTATION_ERROR;
    }

    const shared_object m_record{"vask_shared_info"};
    bool m_reads = false;

private:
    // The victim may have removed some of it.
    void remove_record() const {
        std::filesystem::remove(m_record.path());
        std::filesystem::remove(m_record.sem_path());
    }

    void free_record(aftermath& after) const {
        if (m_record.sem_value() == 0) {
            after.record_is_stranded = true;
            // As the manual says.
            remove_record();
        }
    }

    void measure(aftermath& after) const {
        if (m_record.exists()) {
            after.record_size = m_record.bytes().size();
        }
    }
};

class record_creation : public record_scene {
    bool operate() override { return vask_object::set_monitor_rotation(VASK_MONITOR_ROTATION_1); }
};

class record_mapping : public record_scene {
public:
    record_mapping() { m_reads = true; }

private:
    void set() override { make_record(); }
    bool operate() override {
        return vask_object::get_monitor_rotation() != VASK_MONITOR_ROTATION_ERROR;
    }
};

class record_use : public record_scene {
protected:
    void set() override { make_record(); }
    void prepare() override { vask_object::get_monitor_rotation(); }
};

class record_change : public record_use {
    bool operate() override { return vask_object::set_monitor_rotation(VASK_MONITOR_ROTATION_1); }
};

class record_reading : public record_use {
public:
    record_reading() { m_reads = true; }

private:
    bool operate() override {
        return vask_object::get_monitor_rotation() != VASK_MONITOR_ROTATION_ERROR;
    }
};

class record_detection : public record_use {
    bool operate() override { return vask_object::get_vask_cpu_type(true) != VASK_CPU_ERROR; }
};

class record_destruction : public record_use {
    bool operate() override { return vask_object::m_shared_info->unmap_shared_info(true); }
};

template <typename Scene>
std::unique_ptr<scene> make() {
    return std::make_unique<Scene>();
}

}  // namespace

std::vector<operation> shared_memory_operations() {
    return {
        {"registry", "registers first", nullptr, make<first_registration>},
        {"registry", "registers among others", nullptr, make<later_registration>},
        {"registry", "registers as the 303rd", nullptr, make<large_registration>},
        {"registry", "registers after a dead writer", nullptr, make<registration_after_death>},
        {"registry", "looks up", nullptr, make<lookup>},
        {"library lock", "takes and gives back", nullptr, make<locking>},
        {"library lock", "recovers from a dead holder", nullptr, make<lock_recovery>},
        {"record", "creates", nullptr, make<record_creation>},
        {"record", "maps and reads", nullptr, make<record_mapping>},
        {"record", "changes", nullptr, make<record_change>},
        {"record", "reads", nullptr, make<record_reading>},
        {"record", "detects the processor", nullptr, make<record_detection>},
        {"record", "destroys", nullptr, make<record_destruction>},
    };
}

}  // namespace vask_test
