// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "record_fields.h"

#include <string.h>
#include <unistd.h>

#include <cstdint>

#include "command_line.h"
#include "complaint.h"
#include "printable.h"
#include "shared_info/shared_layout.h"

namespace vaskctl {

namespace {

// The word for a value, or null.
const char* word_for(const record_field& field, int value) {
    if (value < 0 || value > field.largest) {
        return nullptr;
    }
    if (field.offset == offsetof(vk_shared_info, monitor_rotation)) {
        return value == VASK_MONITOR_ROTATION_NOT_SET ? "not set" : nullptr;
    }
    if (field.offset == offsetof(vk_shared_info, cpu_type)) {
        return vask_shared_info::get_vask_cpu_type_str(static_cast<vask_cpu_type>(value));
    }
    if (field.offset == offsetof(vk_shared_info, gpu_type)) {
        return value == VASK_GPU_NVIDIA
                   ? "NVIDIA"
                   : vask_shared_info::get_vask_gpu_type_str(static_cast<vask_gpu_type>(value));
    }
    return value != 0 ? "yes" : "no";
}

}  // namespace

const std::vector<record_field>& record_fields() {
    static const std::vector<record_field> fields = {
        {"monitor-rotation", offsetof(vk_shared_info, monitor_rotation),
         sizeof(vk_shared_info::monitor_rotation), VASK_MONITOR_ROTATION_NOT_SET},
        {"cpu-type", offsetof(vk_shared_info, cpu_type), sizeof(vk_shared_info::cpu_type),
         VASK_CPU_CORE_2_DUO},
        {"gpu-type", offsetof(vk_shared_info, gpu_type), sizeof(vk_shared_info::gpu_type),
         VASK_GPU_NVIDIA},
        {"pseudo-portrait", offsetof(vk_shared_info, pseudo_portrait),
         sizeof(vk_shared_info::pseudo_portrait), 1},
    };
    return fields;
}

const record_field& find_field(const std::string& name) {
    std::string names;
    for (const record_field& field : record_fields()) {
        if (name == field.name) {
            return field;
        }
        names += std::string(names.empty() ? "" : ", ") + field.name;
    }
    throw complaint(status_usage,
                    "the record has no field '" + printable(name) + "', but: " + names);
}

std::string describe(const record_field& field, int value) {
    const char* word = word_for(field, value);
    return std::to_string(value) + (word != nullptr ? std::string(" (") + word + ")" : "");
}

int parse_value(const record_field& field, const std::string& text) {
    for (int value = 0; value <= field.largest; ++value) {
        const char* word = word_for(field, value);
        if (word != nullptr && text == word) {
            return value;
        }
    }
    const std::string what = std::string("a value of ") + field.name;
    const long long value = parse_number(text, what.c_str());
    const bool is_error = field.offset == offsetof(vk_shared_info, monitor_rotation) &&
                          value == VASK_MONITOR_ROTATION_ERROR;
    if (value < 0 || value > field.largest || is_error) {
        throw complaint(status_usage, "'" + text + "' is not " + what);
    }
    return static_cast<int>(value);
}

std::string record_view::damage() const {
    if (!m_file.is_regular()) {
        return "it is not a regular file";
    }
    if (m_file.facts().st_size < static_cast<off_t>(sizeof(vk_shared_info))) {
        return "it is " + std::to_string(m_file.facts().st_size) + " bytes long, not " +
               std::to_string(sizeof(vk_shared_info)) + ": nobody can use it";
    }
    return "";
}

std::optional<int> record_view::value(const record_field& field) const {
    std::int32_t number = 0;
    std::uint8_t byte = 0;
    void* place = field.size == sizeof(byte) ? static_cast<void*>(&byte) : &number;
    if (!damage().empty() || !m_file.is_readable() ||
        pread(m_file.fd(), place, field.size, static_cast<off_t>(field.offset)) !=
            static_cast<ssize_t>(field.size)) {
        return std::nullopt;
    }
    return field.size == sizeof(byte) ? byte : number;
}

}  // namespace vaskctl
