// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <stdio.h>
#include <vask_child_cmd.h>

#include "meter_protocol.h"

/** What an administrator calls a running child with. */
class meterctl : public vask_child_cmd {
public:
    meterctl() : vask_child_cmd("meterctl", meter_child_program, "1.0", false) {
        add("measure", static_cast<cmd_handler>(&meterctl::measure), "measure WHAT : Measure it.");
        add("last", static_cast<cmd_handler>(&meterctl::last), "last : Print the last value.");
    }

private:
    bool measure(std::vector<std::string>& args) {
        return args.size() == 1 && cmd_func(METER_MEASURE, args[0].c_str(), nullptr);
    }

    bool last(std::vector<std::string>&) {
        std::string reply;
        return cmd_func(METER_LAST, "", &reply) && puts(reply.c_str()) >= 0;
    }
};

int main(int argc, char** argv) {
    return meterctl().run(argc, argv);
}
