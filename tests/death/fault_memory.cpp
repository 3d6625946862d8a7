// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// In a separate source, because a compiler that sees both operators warns of malloc and free.

#include <cstdlib>
#include <new>

#include "death/fault_steps.h"

void* operator new(std::size_t size) {
    void* const memory = vask_test::fails("new") ? nullptr : std::malloc(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
