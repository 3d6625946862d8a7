#include <glib.h>
#include <stdio.h>
#include <stdlib.h>
#include <vask_app_bridge.h>
#include <vask_child.h>
#include <vask_child_cmd.h>

class child : public vask_child {
public:
    child(int argc, char** argv) : vask_child("oddity", argc, argv) {
        add_cmd_handler(1, static_cast<cmd_handler>(&child::answer));
        store_pid_to_shm(strtoul(argv[1], nullptr, 10));
    }
    bool answer(const char*, const char**) { return true; }
};

void start(vask_app_bridge& bridge, const char* program, const char* key) {
    strlist command = {program, key}, no_variables;
    bridge.spawn(command, no_variables);
    while (bridge.get_child_pid() > 0 && bridge.get_child_bus_addr() == nullptr) {
        g_main_context_iteration(nullptr, TRUE);
    }
    std::string argument, reply;
    bridge.send_cmd(1, reply, argument);  // answered behind its registration
}

int main(int argc, char** argv) {
    if (argc > 1) {
        return child(argc, argv).run();
    }
    vask_app_bridge first("first", false), second("second", false);
    start(first, argv[0], "1");
    vask_child_cmd_base caller("caller", "oddity");
    printf("the first child: %d\n", caller.call(1, "", nullptr));

    first.terminate_worker();
    first.vask_wait_child_exit(0);
    start(second, argv[0], "2");
    printf("the second child: %d\n", caller.call(1, "", nullptr));
    printf("the second child by key: %d\n", caller.call_by_key(2, 1, "", nullptr));
}
