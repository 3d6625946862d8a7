// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "vask_object.h"
#include "vask_shared_info.h"

vask_shared_info* vask_object::m_shared_info = nullptr;

namespace {

// Outlined, so that forwarding costs a test and a jump.
__attribute__((noinline, cold)) void make_shared_info() {
    vask_object::m_shared_info = new vask_shared_info;
}

// Made by the first caller: static objects of other libraries may be constructed, and ask,
// before those of this one.
vask_shared_info& shared_info() {
    if (vask_object::m_shared_info == nullptr) {
        make_shared_info();
    }
    return *vask_object::m_shared_info;
}

__attribute__((constructor)) void make_shared_info_at_load() {
    shared_info();
}

}  // namespace

bool vask_object::set_monitor_rotation(vask_monitor_rotation_type rotation) {
    return shared_info().set_monitor_rotation(rotation);
}

vask_monitor_rotation_type vask_object::get_monitor_rotation() {
    return shared_info().get_monitor_rotation();
}

void vask_object::set_pseudo_portrait_flag(bool is_pseudo_portrait) {
    shared_info().set_pseudo_portrait_flag(is_pseudo_portrait);
}

bool vask_object::get_pseudo_portrait_flag() {
    return shared_info().get_pseudo_portrait_flag();
}

vask_cpu_type vask_object::get_vask_cpu_type(bool force) {
    return shared_info().get_vask_cpu_type(force);
}

vask_gpu_type vask_object::get_vask_gpu_type(bool force) {
    return shared_info().get_vask_gpu_type(force);
}

const char* vask_object::get_vask_cpu_type_str(vask_cpu_type type) {
    return vask_shared_info::get_vask_cpu_type_str(type);
}

const char* vask_object::get_vask_gpu_type_str(vask_gpu_type type) {
    return vask_shared_info::get_vask_gpu_type_str(type);
}
