#ifndef VASK_TEST_INTERPOSE_H
#define VASK_TEST_INTERPOSE_H

#include <dlfcn.h>

#include <cstdlib>

namespace vask_test {

/** The function that a definition of the same name in the test program hides. */
template <typename Function>
Function* next_function(const char* name) {
    void* address = dlsym(RTLD_NEXT, name);
    if (!address)
        std::abort();
    return reinterpret_cast<Function*>(address);
}

}  // namespace vask_test

#endif
