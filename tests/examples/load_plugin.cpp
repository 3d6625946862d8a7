// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <stdio.h>

#include <new>

#include "vask_test/fake_browser.h"

// What a page can do with the sample plug-in. Prints what the page sees.

using namespace vask_test;

namespace {

void print_object_out_of_memory(fake_browser* browser, NPP element) {
    browser->on_create_object = [](NPP, NPClass*) -> NPObject* { throw std::bad_alloc(); };
    printf("out of memory: %s\n", browser->scriptable(element) ? "an object" : "no object");
    browser->on_create_object = nullptr;
}

void count_with_and_without_callback(fake_browser* browser, NPObject* object, NPObject* function) {
    browser->call(object, "attachEvent", {"counted", function});
    browser->call(object, "count", {5});
    browser->call(object, "detachEvent", {"counted", function});
    browser->call(object, "count", {5});
    script_value value;
    browser->read(object, "value", &value);
    printf("value %d, callback held %d times\n", std::get<int>(value),
           browser->references(function));
}

void remove_by_another_function(fake_browser* browser, NPObject* object, NPObject* function) {
    NPObject* other = browser->make_function();
    browser->call(object, "attachEvent", {"counted", function});
    browser->call(object, "detachEvent", {"counted", other});
    printf("removed by another function, callback held %d times, the other one %d times\n",
           browser->references(function), browser->references(other));
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        puts("usage: load_plugin PLUGIN");
        return 2;
    }
    fake_browser browser;
    browser.load(argv[1]);
    puts(browser.plugin_name().c_str());
    puts(browser.plugin_types().c_str());

    NPP element = browser.open();
    print_object_out_of_memory(&browser, element);
    NPObject* object = browser.scriptable(element);
    NPObject* function = nullptr;
    function = browser.make_function([&](const std::vector<script_value>& arguments) {
        printf("counted %d by a callback held %d times\n", std::get<int>(arguments.at(0)),
               browser.references(function));
        return script_value();
    });
    count_with_and_without_callback(&browser, object, function);
    remove_by_another_function(&browser, object, function);

    // The page goes on with the object when the instance is gone.
    browser.call(object, "attachEvent", {"counted", function});
    browser.close(element);
    browser.call(object, "count", {5});
    browser.drop(object);
    printf("callback held %d times in the end\n", browser.references(function));
    browser.unload();
    for (const std::string& fault : browser.faults()) {
        puts(fault.c_str());
    }
    return 0;
}
