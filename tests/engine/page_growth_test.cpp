// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <fstream>

#include "page_loads.h"

using namespace vask_test;

namespace {

// Four times what the engine itself may grow by, and too little to lose an element in.
constexpr long most_bytes_per_load = 8 * 1024;

long resident_bytes() {
    std::ifstream statm("/proc/self/statm");
    long size = 0;
    long resident = 0;
    statm >> size >> resident;
    return resident * sysconf(_SC_PAGESIZE);
}

}  // namespace

class page_growth : public page_loads {};

TEST_F(page_growth, Two_hundred_loads_do_not_make_the_process_grow) {
    load_and_leave(50);
    const long before = resident_bytes();

    load_and_leave(200);

    EXPECT_LT(resident_bytes() - before, 200 * most_bytes_per_load);
}
