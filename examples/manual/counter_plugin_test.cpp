// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <stdio.h>
#include <vask_test/fake_browser.h>

using namespace vask_test;

int main(int, char** argv) {
    fake_browser browser;
    if (browser.load(argv[1]) != NPERR_NO_ERROR) {
        return 1;
    }
    NPP element = browser.open({{"id", "counter"}});
    NPObject* counter = browser.scriptable(element);

    int heard = 0;
    NPObject* listener = browser.make_function([&](const std::vector<script_value>& arguments) {
        heard += std::get<int>(arguments.at(0));
        return script_value();
    });
    script_value value;
    const bool works = browser.call(counter, "attachEvent", {"counted", listener}) &&
                       browser.call(counter, "count", {5}) && heard == 5 &&
                       browser.read(counter, "value", &value) && value == script_value(5) &&
                       browser.call(counter, "detachEvent", {"counted", listener});
    browser.drop(listener);
    browser.drop(counter);
    browser.close(element);
    browser.unload();
    for (const std::string& fault : browser.faults()) {
        puts(fault.c_str());
    }
    return works && browser.faults().empty() ? 0 : 1;
}
