// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// In a separate source, because a compiler that sees both operators warns of malloc and free.

#include "support/counted_memory.h"

#include <cstdlib>
#include <new>

namespace vask_test {

int allocations = 0;
int allocation_that_fails = 0;
void (*throw_for_failed_allocation)() = nullptr;
int allocations_left = -1;
bool (*refuses_allocation)(std::size_t size) = nullptr;

}  // namespace vask_test

void* operator new(std::size_t size) {
    ++vask_test::allocations;
    bool fails = vask_test::allocation_that_fails > 0 && --vask_test::allocation_that_fails == 0;
    if (vask_test::allocations_left > 0) {
        --vask_test::allocations_left;
    } else if (vask_test::allocations_left == 0) {
        fails = true;
    }
    fails = fails || (vask_test::refuses_allocation && vask_test::refuses_allocation(size));
    if (fails && vask_test::throw_for_failed_allocation) {
        vask_test::throw_for_failed_allocation();
    }
    void* memory = fails ? nullptr : std::malloc(size);
    if (!memory) {
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
