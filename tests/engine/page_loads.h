// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_PAGE_LOADS_H
#define VASK_TEST_PAGE_LOADS_H

#include "engine_page.h"

namespace vask_test {

/** A test that loads a page again and again. */
class page_loads : public engine_page {
protected:
    /** Each time the element has a callback, and has heard of its child, when it is left. */
    void load_and_leave(int times) {
        for (int i = 0; i < times; ++i) {
            load("one_element.html");
            run("plugin.attachEvent('rang', listener('rang'))");
            run("plugin.ring('one')");
            ASSERT_TRUE(host.wait_until("heard.length == 1")) << "load " << i;
            load("no_element.html");
        }
        host.drop_caches();
    }

    /** Waits until nothing is left of the pages but the next, ready instance with its child. */
    void settle() {
        ASSERT_TRUE(host.wait_until([] { return own_children().size() == 1; }));
    }
};

}  // namespace vask_test

#endif
