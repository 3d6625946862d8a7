#include <glib.h>
#include <signal.h>
#include <stdio.h>
#include <sys/wait.h>
#include <vask_app_bridge.h>
#include <vask_child.h>

class child : public vask_child {
public:
    child(int argc, char** argv) : vask_child("child", argc, argv) {
        add_cmd_handler(1, static_cast<cmd_handler>(&child::raise_late));
        emit_signal(1, "early");
        raise(SIGSTOP);  // the parent goes on only now
    }
    bool raise_late(const char*, const char**) {
        emit_signal(1, "late");
        return true;
    }
};

class parent : public vask_app_bridge {
public:
    parent() : vask_app_bridge("parent", false) {
        set_child_sig_cb(1, static_cast<child_sig_cb>(&parent::hear));
    }
    void hear(const char* text) {
        puts(text);
        m_heard = true;
    }
    bool m_heard = false;
};

int main(int argc, char** argv) {
    if (argc > 1) {
        return child(argc, argv).run();
    }
    parent bridge;
    strlist command = {argv[0], "as a child"}, no_variables;
    bridge.spawn(command, no_variables);
    waitpid(bridge.get_child_pid(), nullptr, WUNTRACED);
    kill(bridge.get_child_pid(), SIGCONT);
    bridge.send_cmd_no_reply(1, "");  // queued until the two have met
    while (!bridge.m_heard && bridge.get_child_pid() > 0) {
        g_main_context_iteration(nullptr, TRUE);
    }
}
