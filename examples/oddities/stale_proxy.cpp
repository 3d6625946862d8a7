// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>
#include <vask_app_bridge.h>
#include <vask_child.h>
#include <vask_child_cmd.h>

class child : public vask_child {
public:
    child(int argc, char** argv) : vask_child("oddity", argc, argv) {
        store_pid_to_shm(strtoul(argv[1], nullptr, 10));
    }
    bool command(int, const char*, const char**) override { return true; }
};

void start(vask_app_bridge& bridge, const char* program, unsigned long key) {
    strlist command = {program, std::to_string(key)}, no_variables;
    bridge.spawn(command, no_variables);
    while (bridge.find_stored_pid_from_shm("oddity").count(key) == 0) {
        usleep(1000);
    }
}

int main(int argc, char** argv) {
    if (argc > 1) {
        return child(argc, argv).run();
    }
    vask_app_bridge first("first", true), second("second", true);
    vask_child_cmd_base caller("caller", "oddity");
    start(first, argv[0], 1);
    printf("the first child: %d\n", caller.call(1, "", nullptr));
    first.terminate_worker();
    first.vask_wait_child_exit(0);
    start(second, argv[0], 2);
    printf("the second child: %d\n", caller.call(1, "", nullptr));
    printf("the second child by key: %d\n", caller.call_by_key(2, 1, "", nullptr));
}
