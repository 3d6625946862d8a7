// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// A command-line tool for the children of the demonstration, whoever has started them.

#include <stdio.h>
#include <stdlib.h>
#include <vask_child_cmd.h>
#include <vask_shared_info.h>

#include <string>
#include <vector>

#include "demo_protocol.h"

namespace {

class demo_ctl : public vask_child_cmd {
public:
    demo_ctl() : vask_child_cmd("demo_ctl", "demo_child", "demo_ctl 2.0", false) {
        add("list", static_cast<cmd_handler>(&demo_ctl::list),
            "list : Lists the registered children by their keys");
        add("show", static_cast<cmd_handler>(&demo_ctl::show),
            "show [key] : Shows what a child has noted");
        add("crash", static_cast<cmd_handler>(&demo_ctl::crash),
            "crash [key] : Makes a child crash");
        add("rotate", static_cast<cmd_handler>(&demo_ctl::rotate),
            "rotate 0-3 : Turns the monitor of all programs by so many quarters");
        add("quit", static_cast<cmd_handler>(&demo_ctl::quit), "quit [key] : Asks a child to end");
    }

    /** @return what the process is to end with: run() alone does not tell how the command went */
    int run_to_the_end(int argc, char** argv) {
        const int status = run(argc, argv);
        return status == EXIT_SUCCESS && m_has_failed ? EXIT_FAILURE : status;
    }

private:
    bool list(std::vector<std::string>&) {
        for (const auto& entry : find_stored_pid_from_shm(m_program)) {
            printf("key %lu: process %d\n", entry.first, entry.second);
        }
        return true;
    }

    bool show(std::vector<std::string>& args) {
        std::string diary;
        if (!command(args, DEMO_CMD_DIARY, &diary)) {
            return false;
        }
        printf("process %d has noted: %s\n", m_pid, diary.c_str());
        return true;
    }

    // A child that crashes cannot answer: that the call fails, and the line that says so, are what
    // is expected here.
    bool crash(std::vector<std::string>& args) {
        m_has_failed = !has_target(args) || call_target(args, DEMO_CMD_CRASH, nullptr);
        return !m_has_failed;
    }

    bool quit(std::vector<std::string>& args) {
        std::string farewell;
        if (!command(args, DEMO_CMD_QUIT, &farewell)) {
            return false;
        }
        printf("%s\n", farewell.c_str());
        return true;
    }

    // Asks no child: all of them look at the record that is set here.
    bool rotate(std::vector<std::string>& args) {
        const bool is_rotation =
            args.size() == 1 && args[0].size() == 1 && args[0][0] >= '0' && args[0][0] <= '3';
        if (!is_rotation) {
            fprintf(stderr, "A rotation is a number from 0 to 3\n");
        }
        m_has_failed =
            !is_rotation ||
            !set_monitor_rotation(static_cast<vask_monitor_rotation_type>(args[0][0] - '0'));
        return !m_has_failed;
    }

    bool command(const std::vector<std::string>& args, int id, std::string* reply) {
        m_has_failed = !has_target(args) || !call_target(args, id, reply);
        return !m_has_failed;
    }

    // The child with the key, if one is given; otherwise the one that run() has chosen.
    bool has_target(const std::vector<std::string>& args) {
        if (args.empty() || find_stored_pid_from_shm(m_program).count(key_in(args)) != 0) {
            return true;
        }
        fprintf(stderr, "There is no child with the key '%s'\n", args[0].c_str());
        return false;
    }

    bool call_target(const std::vector<std::string>& args, int id, std::string* reply) {
        return args.empty() ? cmd_func(id, "", reply) : call_by_key(key_in(args), id, "", reply);
    }

    // A text that is no number is read as 0, which is never a child's key here.
    static unsigned long key_in(const std::vector<std::string>& args) {
        return strtoul(args[0].c_str(), nullptr, 0);
    }

    bool m_has_failed = false;
};

}  // namespace

int main(int argc, char** argv) {
    return demo_ctl().run_to_the_end(argc, argv);
}
