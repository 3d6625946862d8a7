// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <stdio.h>
#include <vask_child_cmd.h>

#include "notes.h"

class notes_tool : public vask_child_cmd {
public:
    notes_tool() : vask_child_cmd("notes_tool", "notes_child", "1.0", false) {
        add("add", static_cast<cmd_handler>(&notes_tool::add_note), "add TEXT : Add a note.");
        add("count", static_cast<cmd_handler>(&notes_tool::count), "count : Print their number.");
    }

private:
    bool add_note(std::vector<std::string>& args) {
        return args.size() == 1 && cmd_func(NOTES_ADD, args[0].c_str(), nullptr);
    }

    bool count(std::vector<std::string>&) {
        std::string reply;
        return cmd_func(NOTES_COUNT, "", &reply) && puts(reply.c_str()) >= 0;
    }
};

int main(int argc, char** argv) {
    return notes_tool().run(argc, argv);
}
