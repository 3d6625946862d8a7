// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_OPEN_APP_H
#define VASK_TEST_OPEN_APP_H

#include <initializer_list>
#include <string>
#include <vector>

#include "vask_app.h"

namespace vask_test {

constexpr char no_sys_init_marker[] = "--vask-app-no-sys-init";

/** A command line as main() gets it, terminating null included. */
class command_line {
public:
    command_line(std::initializer_list<std::string> texts) : m_texts(texts) {
        for (std::string& text : m_texts) {
            m_argv.push_back(text.data());
        }
        m_argv.push_back(nullptr);
    }

    command_line(const command_line&) = delete;
    command_line& operator=(const command_line&) = delete;

    int argc() const { return static_cast<int>(m_texts.size()); }
    char** argv() { return m_argv.data(); }

private:
    std::vector<std::string> m_texts;
    std::vector<char*> m_argv;
};

/** An application frame whose protected side tests can reach. */
class open_app : public vask_app {
public:
    open_app(int argc, char** argv) : vask_app("app", argc, argv) {}
    explicit open_app(command_line&& line) : open_app(line.argc(), line.argv()) {}

    using vask_app::m_arg_error_fatal;
    using vask_app::m_arg_index;
    using vask_app::m_args;
    using vask_app::m_exit_code;
    using vask_app::m_init_ok;
    using vask_app::m_main_loop;
    using vask_app::m_no_sys_init;
    using vask_app::set_arg_error_fatal;
};

}  // namespace vask_test

#endif
