// A source of its own: where the compiler sees both operators it distrusts malloc and free.

#include "counted_memory.h"

#include <cstdlib>
#include <new>

namespace vask_test {

int allocations = 0;
int allocation_that_fails = 0;
void (*throw_for_failed_allocation)() = nullptr;

}  // namespace vask_test

void* operator new(std::size_t size) {
    ++vask_test::allocations;
    const bool fails =
        vask_test::allocation_that_fails > 0 && --vask_test::allocation_that_fails == 0;
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
