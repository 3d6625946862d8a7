// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "vask_shared_info.h"

#include <optional>

#include "foundation/log_place.h"
#include "foundation/signal_block.h"
#include "shared_info/hardware_detection.h"
#include "shared_info/record_access.h"
#include "shared_info/shared_layout.h"
#include "shared_info/shm_mapping.h"
#include "shared_info/source_unit.h"
#include "vask_object.h"

namespace {

template <typename Field>
Field load(const Field& field) {
    static_assert(__atomic_always_lock_free(sizeof(Field), nullptr), "shared by all processes");
    return __atomic_load_n(&field, __ATOMIC_RELAXED);  // [S1], [S2]
}

template <typename Field>
void store(Field& field, Field value) {
    static_assert(__atomic_always_lock_free(sizeof(Field), nullptr), "shared by all processes");
    __atomic_store_n(&field, value, __ATOMIC_RELAXED);  // [S1], [C2]
}

// The record, filled in and free to be locked; null when it cannot be mapped. Not inlined, so
// that the way to a mapped record stays short enough to be.
__attribute__((noinline)) vask_shm_context* map_record(vask_shared_info& info, bool create) {
    signal_block signals;
    vask_shm_context* ctx =
        map_shm_undisturbed(shared_info_name, sizeof(vk_shared_info), create, signals).release();
    if (ctx == nullptr) {
        return nullptr;
    }
    if (ctx->get_created()) {
        info.init_shared_info(static_cast<vk_shared_info*>(ctx->get_addr()));
    }
    const bool posted = sem_post(ctx->get_sem()) == 0;
    signals.unblock();
    if (!posted) {
        vask_object::post_named_sem(ctx->get_sem());
    }
    return ctx;
}

// For a guard that has no semaphore. Without a record, that was told already.
void report_missing_lock(const record_access& record) {
    if (record.is_mapped()) {
        vask_object::vask_p("vask", VASK_P_ERR, VASK_AT("Failed to call vask_sem_wait()"));
    }
}

// A detected type that the record keeps.
struct kept_type {
    std::int32_t vk_shared_info::*field;
    std::int32_t (*detect)(vask_shared_info& info);
};

constexpr kept_type kept_cpu = {
    &vk_shared_info::cpu_type,
    [](vask_shared_info& info) -> std::int32_t { return info.get_vask_cpu_type_check(); }};

constexpr kept_type kept_gpu = {
    &vk_shared_info::gpu_type,
    [](vask_shared_info& info) -> std::int32_t { return info.get_vask_gpu_type_check(); }};

constexpr std::int32_t type_error = 2;
static_assert(type_error == VASK_CPU_ERROR && type_error == VASK_GPU_ERROR, "one for both");

// Nothing where the record could not be locked.
std::optional<std::int32_t> look_up(const record_access& record, const kept_type& type) {
    return record ? std::make_optional(load((*record).*type.field)) : std::nullopt;
}

bool keep(const record_access& record, const kept_type& type, std::int32_t detected) {
    if (record) {
        store((*record).*type.field, detected);
    }
    return static_cast<bool>(record);
}

// The detection reads files, so it runs without the semaphore: two processes may detect at once,
// and store the same.
std::int32_t get_or_detect(vask_shared_info& info, vask_shm_context* const& ctx,
                           const kept_type& type, bool force) {
    const vk_shared_info* mapped = info.map_shared_info(true);
    if (mapped == nullptr) {
        return type_error;
    }
    // A look without the semaphore only decides whether to keep signals away: what is known already
    // costs no system call.
    const bool is_known = !force && load(mapped->*type.field) != 0;
    const std::optional<std::int32_t> cached =
        is_known ? look_up(record_reader(ctx), type) : look_up(record_changer(ctx), type);
    if (!cached) {
        return type_error;
    }
    if (!force && *cached != 0) {
        return *cached;
    }
    const std::int32_t detected = type.detect(info);
    info.map_shared_info(true);
    return keep(record_changer(ctx), type, detected) ? detected : type_error;
}

template <std::size_t Count>
const char* text_or_unknown(const char* const (&texts)[Count], int type) {
    return type >= 0 && static_cast<std::size_t>(type) < Count ? texts[type] : "Unknown";
}

}  // namespace

const char* const shared_info_name = "vask_shared_info";

vask_shared_info::vask_shared_info() : m_shared_info_ctx(nullptr) {}

vk_shared_info* vask_shared_info::map_shared_info(bool create) {
    if (m_shared_info_ctx == nullptr) {
        m_shared_info_ctx = map_record(*this, create);
        if (m_shared_info_ctx == nullptr) {
            return nullptr;
        }
    }
    return static_cast<vk_shared_info*>(m_shared_info_ctx->get_addr());
}

bool vask_shared_info::unmap_shared_info(bool destroy) {
    if (m_shared_info_ctx == nullptr) {
        return true;
    }
    const std::string name = m_shared_info_ctx->get_name();
    if (!unmap_shm(m_shared_info_ctx)) {
        vask_object::vask_p("vask", VASK_P_ERR, VASK_AT("Failed to call unmap_shm()"));
    }
    m_shared_info_ctx = nullptr;
    if (destroy) {
        remove_shm_and_sem(name);
    }
    return true;
}

void vask_shared_info::init_shared_info(vk_shared_info* rec) {
    store<std::int32_t>(rec->monitor_rotation, VASK_MONITOR_ROTATION_NOT_SET);
    store<std::int32_t>(rec->cpu_type, VASK_CPU_NOT_CHECKED);
    store<std::int32_t>(rec->gpu_type, VASK_GPU_NOT_CHECKED);
}

bool vask_shared_info::lock_shared_info() {
    return vask_object::vask_sem_wait(sem_to_lock(m_shared_info_ctx));
}

bool vask_shared_info::unlock_shared_info() {
    return vask_object::vask_sem_post(sem_to_lock(m_shared_info_ctx));
}

bool vask_shared_info::set_monitor_rotation(vask_monitor_rotation_type rotation) {
    map_shared_info(true);
    const record_changer record(m_shared_info_ctx);
    if (record) {
        store<std::int32_t>(record->monitor_rotation, rotation);
    }
    return static_cast<bool>(record);
}

vask_monitor_rotation_type vask_shared_info::get_monitor_rotation() {
    map_shared_info(true);
    const record_reader record(m_shared_info_ctx);
    return record ? static_cast<vask_monitor_rotation_type>(load(record->monitor_rotation))
                  : VASK_MONITOR_ROTATION_ERROR;
}

void vask_shared_info::set_pseudo_portrait_flag(bool is_pseudo_portrait) {
    map_shared_info(true);
    const record_changer record(m_shared_info_ctx);
    if (record) {
        store<std::uint8_t>(record->pseudo_portrait, is_pseudo_portrait);
    } else {
        report_missing_lock(record);
    }
}

bool vask_shared_info::get_pseudo_portrait_flag() {
    map_shared_info(true);
    const record_reader record(m_shared_info_ctx);
    if (record) {
        return load(record->pseudo_portrait) != 0;
    }
    report_missing_lock(record);
    return false;
}

vask_cpu_type vask_shared_info::get_vask_cpu_type(bool force) {
    return static_cast<vask_cpu_type>(get_or_detect(*this, m_shared_info_ctx, kept_cpu, force));
}

vask_gpu_type vask_shared_info::get_vask_gpu_type(bool force) {
    return static_cast<vask_gpu_type>(get_or_detect(*this, m_shared_info_ctx, kept_gpu, force));
}

vask_cpu_type vask_shared_info::get_vask_cpu_type_check() {
    return detect_cpu(hardware_files.cpu);
}

vask_gpu_type vask_shared_info::get_vask_gpu_type_check() {
    return detect_gpu(hardware_files.pci_devices);
}

const char* vask_shared_info::get_vask_cpu_type_str(vask_cpu_type type) {
    static const char* const texts[] = {"Not checked", "Unknown", "Error",
                                        "ATOM Z",      "ATOM N",  "Core 2 Duo"};
    return text_or_unknown(texts, type);
}

const char* vask_shared_info::get_vask_gpu_type_str(vask_gpu_type type) {
    static const char* const texts[] = {"Not checked", "Unknown", "Error",
                                        "GMA 500",     "GMA 950", "GMA 4500MHD"};
    return text_or_unknown(texts, type);
}
