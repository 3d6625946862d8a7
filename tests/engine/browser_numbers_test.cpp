// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Whether the engine means the same by a number as the headers do.

#include <npapi/npfunctions.h>

#include "browser_table.h"
#include "engine_page.h"

using namespace vask_test;

namespace {

class browser_numbers : public engine_element {
protected:
    // What concerns no instance.
    static NPError ask(NPNVariable variable, void* value) {
        return browser_table().getvalue(nullptr, variable, value);
    }
};

}  // namespace

TEST_F(browser_numbers, The_engine_names_its_toolkit) {
    uint32_t toolkit = 0xdead;

    EXPECT_EQ(ask(NPNVToolkit, &toolkit), NPERR_NO_ERROR);

    EXPECT_NE(toolkit, 0xdeadU);
}
