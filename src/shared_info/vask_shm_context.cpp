// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "foundation/shared_names.h"
#include "vask_shared_info.h"

vask_shm_context::vask_shm_context(const char* name, unsigned long size)
    : m_addr(nullptr), m_sem(nullptr), m_name(name), m_size(size), m_created(false) {}

vask_shm_context::~vask_shm_context() = default;

std::string vask_shm_context::get_name() const {
    return m_name;
}

std::string vask_shm_context::get_shm_name() const {
    return context_shm_prefix + m_name;
}

std::string vask_shm_context::get_sem_name() const {
    return context_sem_prefix + m_name;
}

std::uint32_t vask_shm_context::get_size_msb() const {
    return static_cast<std::uint32_t>(m_size >> 32);
}

std::uint32_t vask_shm_context::get_size_lsb() const {
    return static_cast<std::uint32_t>(m_size);
}
