// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_WEB_HOST_H
#define VASK_TEST_WEB_HOST_H

#include <functional>
#include <memory>
#include <string>

namespace vask_test {

/**
 * A browser: a window with a page in it, and plug-ins from the build.
 *
 * It runs on the default main context, which only makes progress inside these calls.
 */
class web_host {
public:
    /** Shows an empty page. Needs a display. */
    web_host();
    ~web_host();
    web_host(const web_host&) = delete;
    web_host& operator=(const web_host&) = delete;

    /** Loads a page from a file and waits for it; false when it does not come. */
    bool load(const std::string& path);

    /** Goes back to the page before this one and waits for it. */
    bool go_back();

    /** @return the value of an expression in the page, as JSON; "undefined" for that, and
     *          "exception: ..." when the script ends with one */
    std::string run(const std::string& script);

    /** Lets the page live until the condition holds; false when the deadline comes first. */
    bool wait_until(const std::function<bool()>& condition, int deadline_msec = 120000);

    /** The same with an expression in the page, which must become true. */
    bool wait_until(const std::string& script);

    /** Handles what is pending, without waiting for more. */
    void handle_events();

    /** Has the engine forget what it keeps of pages that were left. */
    void drop_caches();

    /** @return what the window shows there, as 0xRRGGBB */
    unsigned int pixel(int x, int y);

    /** Writes what the window shows; the format goes by the file's extension. */
    bool save_screenshot(const std::string& path);

private:
    struct parts;

    bool wait_for_page();

    std::unique_ptr<parts> m_parts;
};

}  // namespace vask_test

#endif
