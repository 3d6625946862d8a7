// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "vask_exec.h"

#include <glib.h>

#include "foundation/c_border.h"
#include "foundation/exec_call.h"
#include "foundation/life_mark.h"
#include "foundation/scope_exit.h"

vask_exec::vask_exec() : m_idle_call_runs(false), m_life_marks(nullptr) {}

vask_exec::~vask_exec() {
    life_mark::end_all(m_life_marks);
}

void vask_exec::add_idle_exec_func(vask_exec_func func, void* data, vask_exec* target) {
    vask_exec* const receiver = target != nullptr ? target : this;
    // It is this object's list that is tested, also for a foreign target: kept.
    if (exec_list.empty()) {
        g_idle_add(_idle_callback, receiver);
    }
    receiver->exec_list.push_back(vask_exec_info{func, data});
}

bool vask_exec::idle_callback() {
    // Several sources may serve one list, when others have added calls to it. One that finds
    // nothing, or is dispatched by a main loop inside a call, leaves the rest to the others.
    if (exec_list.empty() || m_idle_call_runs) {
        return false;
    }
    const life_mark life(*this);
    m_idle_call_runs = true;
    // It stays in front while it runs, so that calls which it adds start no further source.
    const vask_exec_info info = exec_list.front();
    {
        const scope_exit forget_it([&] {
            if (!life.is_over()) {
                exec_list.pop_front();
                m_idle_call_runs = false;
            }
        });
        call_member(this, info.func, info.data);
    }
    return !life.is_over() && !exec_list.empty();
}

unsigned int vask_exec::add_timer_exec_func(int interval_msec, vask_exec_func func, void* data,
                                            vask_exec* target) {
    auto* info = new vask_obj_exec_info{func, data, target != nullptr ? target : this};
    return g_timeout_add_full(G_PRIORITY_DEFAULT, static_cast<guint>(MAX(interval_msec, 0)),
                              _timer_callback, info, delete_vask_exec_info);
}

int vask_exec::_idle_callback(void* exec) {
    auto* const object = static_cast<vask_exec*>(exec);
    const life_mark life(*object);
    const auto first_call = [object] {
        return object->exec_list.empty() ? nullptr : &object->exec_list.front();
    };
    const vask_exec_info* const first = first_call();
    bool remain = false;
    if (!call_for_c("vask_exec::idle_callback()", [&] { remain = object->idle_callback(); }) &&
        !life.is_over()) {
        // An override that throws has not always come to the call. It counts as made all the same:
        // else one that always throws would keep the main loop busy for ever.
        if (first != nullptr && first_call() == first && !object->m_idle_call_runs) {
            object->exec_list.pop_front();
        }
        remain = !object->exec_list.empty();
    }
    return remain;
}

int vask_exec::_timer_callback(void* info) {
    const auto* call = static_cast<vask_obj_exec_info*>(info);
    call_for_c("vask_exec::_timer_callback()",
               [call] { call_member(call->obj, call->func, call->data); });
    return G_SOURCE_REMOVE;
}

void delete_vask_exec_info(void* info) {
    delete static_cast<vask_obj_exec_info*>(info);
}
