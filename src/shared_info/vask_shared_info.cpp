#include "vask_shared_info.h"

#include <cstddef>

#include "foundation/log_place.h"
#include "foundation/named_sem.h"
#include "foundation/signal_block.h"
#include "shared_info/hardware_detection.h"
#include "shared_info/shm_mapping.h"
#include "shared_info/source_unit.h"
#include "vask_object.h"

static_assert(sizeof(vk_shared_info) == 2064, "shared by all processes");
static_assert(offsetof(vk_shared_info, monitor_rotation) == 0, "shared by all processes");
static_assert(offsetof(vk_shared_info, cpu_type) == 4, "shared by all processes");
static_assert(offsetof(vk_shared_info, gpu_type) == 8, "shared by all processes");
static_assert(offsetof(vk_shared_info, pseudo_portrait) == 12, "shared by all processes");

namespace {

template <typename Field>
Field load(const Field& field) {
    return __atomic_load_n(&field, __ATOMIC_RELAXED);
}

template <typename Field>
void store(Field& field, Field value) {
    __atomic_store_n(&field, value, __ATOMIC_RELAXED);
}

// Out of the way, so that the way to the record stays short enough to be inlined.
__attribute__((noinline, cold)) sem_t* report_nothing_to_lock(const char* format, const char* unit,
                                                              int line) {
    vask_object::vask_p("vask", VASK_P_ERR, format, unit, line);
    return nullptr;
}

// Null after a line when there is nothing to lock.
sem_t* sem_of(const vask_shm_context* ctx) {
    if (ctx == nullptr) {
        return report_nothing_to_lock(VASK_AT("m_shared_info_ctx == NULL"));
    }
    sem_t* sem = ctx->get_sem();
    return sem != nullptr ? sem : report_nothing_to_lock(VASK_AT("sem == NULL"));
}

// The record, filled in and free to be locked; null when it cannot be mapped. Out of the way, too.
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

enum class access_result { done, not_mapped, not_locked };

// What taking the record needs.
struct mapped_record {
    vk_shared_info* record;
    sem_t* sem;
};

// Without a record or a semaphore the result says which.
access_result find(vask_shared_info& info, vask_shm_context* const& ctx, mapped_record& found) {
    found.record = info.map_shared_info(true);
    if (found.record == nullptr) {
        return access_result::not_mapped;
    }
    found.sem = sem_of(ctx);
    return found.sem != nullptr ? access_result::done : access_result::not_locked;
}

// Runs an access to the record under its semaphore. Nothing in it may block. It makes no system
// call while the semaphore is free, so a signal that ends the process may strike while it is held.
template <typename Access>
access_result read_record(vask_shared_info& info, vask_shm_context* const& ctx, Access access) {
    mapped_record found;
    const access_result result = find(info, ctx, found);
    if (result != access_result::done) {
        return result;
    }
    // The first try is made here, where it costs no more than the call. What fails is repeated, and
    // reported, by the base object.
    if (sem_trywait(found.sem) != 0 && !take_sem_awake(found.sem) &&
        !vask_object::vask_sem_wait(found.sem)) {
        return access_result::not_locked;
    }
    access(*found.record);
    if (sem_post(found.sem) != 0) {
        vask_object::vask_sem_post(found.sem);
    }
    return access_result::done;
}

// The same, undisturbed by signals, for two system calls.
template <typename Access>
access_result change_record(vask_shared_info& info, vask_shm_context* const& ctx, Access access) {
    mapped_record found;
    const access_result result = find(info, ctx, found);
    if (result != access_result::done) {
        return result;
    }
    signal_block signals;
    if (const int error = take_sem_undisturbed(found.sem, signals)) {
        report_failed_sem_wait(error);
        return access_result::not_locked;
    }
    access(*found.record);
    const bool posted = sem_post(found.sem) == 0;
    signals.unblock();
    if (!posted) {
        vask_object::vask_sem_post(found.sem);
    }
    return access_result::done;
}

void report_when_not_locked(access_result result) {
    if (result == access_result::not_locked) {
        vask_object::vask_p("vask", VASK_P_ERR, VASK_AT("Failed to call vask_sem_wait()"));
    }
}

// The detected type that the record keeps in a field. The detection reads files, so it runs without
// the semaphore: two processes may detect at once, and store the same.
template <typename Type>
Type get_or_detect(vask_shared_info& info, vask_shm_context* const& ctx,
                   std::int32_t vk_shared_info::*field, Type error, bool force,
                   Type (vask_shared_info::*detect)()) {
    const vk_shared_info* record = info.map_shared_info(true);
    if (record == nullptr) {
        return error;
    }
    // A look without the semaphore only decides whether to keep signals away: what is known already
    // costs no system call.
    const bool is_known = !force && load(record->*field) != 0;
    std::int32_t cached = 0;
    const auto read = [&](const vk_shared_info& shared) { cached = load(shared.*field); };
    const access_result result =
        is_known ? read_record(info, ctx, read) : change_record(info, ctx, read);
    if (result != access_result::done) {
        return error;
    }
    if (!force && cached != 0) {
        return static_cast<Type>(cached);
    }
    const Type detected = (info.*detect)();
    const auto keep = [&](vk_shared_info& shared) { store<std::int32_t>(shared.*field, detected); };
    return change_record(info, ctx, keep) == access_result::done ? detected : error;
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
    return vask_object::vask_sem_wait(sem_of(m_shared_info_ctx));
}

bool vask_shared_info::unlock_shared_info() {
    return vask_object::vask_sem_post(sem_of(m_shared_info_ctx));
}

bool vask_shared_info::set_monitor_rotation(vask_monitor_rotation_type rotation) {
    return change_record(*this, m_shared_info_ctx, [&](vk_shared_info& record) {
               store<std::int32_t>(record.monitor_rotation, rotation);
           }) == access_result::done;
}

vask_monitor_rotation_type vask_shared_info::get_monitor_rotation() {
    std::int32_t rotation = VASK_MONITOR_ROTATION_ERROR;
    read_record(*this, m_shared_info_ctx,
                [&](const vk_shared_info& record) { rotation = load(record.monitor_rotation); });
    return static_cast<vask_monitor_rotation_type>(rotation);
}

void vask_shared_info::set_pseudo_portrait_flag(bool is_pseudo_portrait) {
    const access_result result =
        change_record(*this, m_shared_info_ctx, [&](vk_shared_info& record) {
            store<std::uint8_t>(record.pseudo_portrait, is_pseudo_portrait);
        });
    report_when_not_locked(result);
}

bool vask_shared_info::get_pseudo_portrait_flag() {
    bool is_pseudo_portrait = false;
    const access_result result =
        read_record(*this, m_shared_info_ctx, [&](const vk_shared_info& record) {
            is_pseudo_portrait = load(record.pseudo_portrait) != 0;
        });
    report_when_not_locked(result);
    return is_pseudo_portrait;
}

vask_cpu_type vask_shared_info::get_vask_cpu_type(bool force) {
    return get_or_detect(*this, m_shared_info_ctx, &vk_shared_info::cpu_type, VASK_CPU_ERROR, force,
                         &vask_shared_info::get_vask_cpu_type_check);
}

vask_gpu_type vask_shared_info::get_vask_gpu_type(bool force) {
    return get_or_detect(*this, m_shared_info_ctx, &vk_shared_info::gpu_type, VASK_GPU_ERROR, force,
                         &vask_shared_info::get_vask_gpu_type_check);
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
