// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_OPEN_TOOL_H
#define VASK_TEST_OPEN_TOOL_H

#include <initializer_list>
#include <string>
#include <vector>

#include "programs/controller_child_commands.h"
#include "support/open_app.h"
#include "vask_child_cmd.h"

namespace vask_test {

/** A tool named "tool" with commands of its own, whose protected side tests can reach. */
class open_tool : public vask_child_cmd {
public:
    static constexpr bool no_sys_init = true;

    explicit open_tool(bool without_sys_init = false, const char* program = controller_child_name)
        : vask_child_cmd("tool", program, "tool 1.2.3", without_sys_init) {
        add("note", static_cast<cmd_handler>(&open_tool::note), "note [WORD]... : Notes the words");
        add("fail", static_cast<cmd_handler>(&open_tool::fail), "fail : Fails");
        add("pid", static_cast<cmd_handler>(&open_tool::pid), "pid : Asks for the process id");
        add("refused", static_cast<cmd_handler>(&open_tool::refused), "refused : Is refused");
    }

    /** @param words  the command line, the tool's own name included
     *  @return the exit status */
    int run_with(std::initializer_list<std::string> words) {
        command_line line(words);
        return run(line.argc(), line.argv());
    }

    /** What the handlers got, call by call. */
    std::vector<std::vector<std::string>> noted;
    /** The reply to the command "pid". */
    std::string pid_reply;

    using vask_child_cmd::m_commands;
    using vask_child_cmd::m_help_lines;
    using vask_child_cmd::m_pid;
    using vask_child_cmd::m_proxy;
    using vask_child_cmd::m_tool_name;
    using vask_child_cmd::m_version;

private:
    bool note(std::vector<std::string>& args) {
        noted.push_back(args);
        return true;
    }

    bool fail(std::vector<std::string>& args) {
        noted.push_back(args);
        return false;
    }

    bool pid(std::vector<std::string>&) { return cmd_func(CONTROLLER_CHILD_PID, "", &pid_reply); }

    bool refused(std::vector<std::string>&) { return cmd_func(CONTROLLER_CHILD_FAIL, "", nullptr); }
};

}  // namespace vask_test

#endif
