// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// A tool as a product would be: controls controller_child.

#include <stdio.h>
#include <vask_child_cmd.h>

#include "controller_child_commands.h"

namespace {

class controller_tool : public vask_child_cmd {
public:
    controller_tool() : vask_child_cmd("controller_tool", controller_child_name, "2.0", false) {
        add("echo", static_cast<cmd_handler>(&controller_tool::echo), "echo TEXT : Sends the text");
        add("fail", static_cast<cmd_handler>(&controller_tool::fail), "fail : Fails");
    }

private:
    bool echo(std::vector<std::string>& args) {
        std::string reply;
        if (args.size() != 1 || !cmd_func(CONTROLLER_CHILD_ECHO, args[0].c_str(), &reply)) {
            return false;
        }
        printf("%s\n", reply.c_str());
        return true;
    }

    bool fail(std::vector<std::string>&) { return cmd_func(CONTROLLER_CHILD_FAIL, "", nullptr); }
};

}  // namespace

int main(int argc, char** argv) {
    return controller_tool().run(argc, argv);
}
