// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <semaphore.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "shared_file.h"
#include "shared_info/hardware_detection.h"
#include "shared_info/shared_layout.h"
#include "target.h"
#include "vask_object.h"

using vask_fuzz::input;
using vask_fuzz::require;

namespace {

const std::string record_shm = std::string(context_shm_prefix) + shared_info_name;
const std::string record_sem =
    std::string(named_sem_file_prefix) + context_sem_prefix + shared_info_name;

/** What a process does with the record, while a stranger has made or replaced its files. */
class host {
public:
    ~host() {
        for (vask_shm_context* context : m_contexts) {
            require(vask_shared_info::unmap_shm(context), "what was mapped can be unmapped");
        }
        m_info.unmap_shared_info(false);
    }

    void act(input& input) {
        const std::size_t step = input.below(8);
        m_is_alone = m_is_alone && step >= 2 && step <= 4;
        switch (step) {
            case 0:
                vask_fuzz::put_shared_file(record_shm, input);
                break;
            case 1:
                vask_fuzz::put_shared_file(record_sem, input);
                break;
            case 2:
                set_and_get(input);
                break;
            case 3:
                m_info.get_vask_cpu_type(input.flag());
                m_info.get_vask_gpu_type(input.flag());
                break;
            case 4:
                m_info.unmap_shared_info(input.flag());
                break;
            case 5:
                map_another(input);
                break;
            case 6:
                m_info.destroy_shm(input.text().c_str());
                break;
            default:
                scribble(input);
                break;
        }
    }

private:
    void set_and_get(input& input) {
        const auto rotation = static_cast<vask_monitor_rotation_type>(input.number<std::int32_t>());
        const bool flag = input.flag();
        const bool is_set = m_info.set_monitor_rotation(rotation);
        require(is_set || !m_is_alone, "a record that nobody else touches can be set");
        require(!is_set || m_info.get_monitor_rotation() == rotation, "what was set is read");
        // That has no result, but nobody has come between.
        m_info.set_pseudo_portrait_flag(flag);
        const bool is_flag_set = m_info.get_pseudo_portrait_flag();
        require(!is_set || is_flag_set == flag, "the flag is set as well as the rotation");
        require(!is_set || m_info.get_monitor_rotation() == rotation, "the flag is beside it");
    }

    void map_another(input& input) {
        const std::string name = input.text();
        const std::uint64_t number = input.number<std::uint32_t>();
        // Either can be had, or surely not.
        const auto size = static_cast<unsigned long>(input.flag() ? number << 40 : number % 100000);
        vask_shm_context* const context =
            vask_shared_info::map_shm(name.c_str(), size, input.flag());
        if (context != nullptr) {
            memset(context->get_addr(), 0x5a, context->get_size());
            sem_post(context->get_sem());
            m_contexts.push_back(context);
        }
    }

    // In the record itself, as any process may.
    void scribble(input& input) {
        const std::size_t offset = input.byte();
        const std::string bytes = input.take(input.byte());
        if (vk_shared_info* const record = m_info.map_shared_info(input.flag())) {
            bytes.copy(reinterpret_cast<char*>(record) + offset, bytes.size());
        }
    }

    vask_shared_info m_info;
    // Nobody has put, mapped, destroyed or written anything beside it yet.
    bool m_is_alone = true;
    std::vector<vask_shm_context*> m_contexts;
};

}  // namespace

void set_up_target() {
    vask_fuzz::output_of_library::discard();
    hardware_files = {"/dev/null", "/nonexistent"};
}

void run_target(input& input) {
    {
        host host;
        for (int i = 0; i < 24 && input.has_more(); ++i) {
            host.act(input);
        }
    }
    vask_fuzz::remove_shared_files();
}
