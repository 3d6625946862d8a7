// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_SHARED_VALUE_H
#define VASK_TEST_SHARED_VALUE_H

#include <sys/mman.h>

#include <cstdlib>
#include <new>

/** A zero-initialised value that this process and those it forks later have in common. */
template <typename Value>
class shared_value {
public:
    shared_value()
        : m_address(mmap(nullptr, sizeof(Value), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS,
                         -1, 0)) {
        if (m_address == MAP_FAILED) {
            std::abort();
        }
        new (m_address) Value();
    }
    ~shared_value() { munmap(m_address, sizeof(Value)); }
    shared_value(const shared_value&) = delete;
    shared_value& operator=(const shared_value&) = delete;

    Value& operator*() const { return *static_cast<Value*>(m_address); }
    Value* operator->() const { return static_cast<Value*>(m_address); }

private:
    void* const m_address;
};

#endif
