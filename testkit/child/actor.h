// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_ACTOR_H
#define VASK_TEST_ACTOR_H

#include <memory>
#include <string>
#include <vector>

#include "script.h"
#include "vask_child.h"

namespace vask_test {

/** What no script may say; empty when all lines are right. */
std::string find_unknown_action(const std::vector<std::string>& lines);

/** The process that does what a script says. */
class actor {
public:
    /**
     * @param program     the path by which it was started
     * @param has_files   whether its files lie beside it; otherwise it prints its journal
     * @param wanted      what it does
     * @param argc, argv  its command line
     */
    actor(const std::string& program, bool has_files, script wanted, int argc, char** argv);
    ~actor();

    /** Until the script or the bus ends it. @return the exit status */
    int run();

private:
    friend struct action_table;
    class stage;

    struct call {
        const char* argument;
        const char** reply;
        bool succeeds;
    };

    void note(const std::string& event);
    std::size_t count_earlier_starts() const;
    void watch_sigterm();
    void open_orders();
    void read_orders(int fd);
    void perform(const action_list& actions);
    void perform(const action& next);
    bool handle_command(int id, const char* argument, const char** reply);
    void join();
    vask_child& child() const;
    void quit(int status);

    const std::string m_program;
    const std::string m_name;
    const bool m_has_files;
    script m_script;
    const int m_argc;
    char** const m_argv;
    std::unique_ptr<stage> m_child;
    bool m_stays_off_bus = false;
    bool m_has_ended = false;
    int m_status = 0;
    call* m_call = nullptr;
    std::string m_reply;
    std::string m_order;  // as much of a line as has come
};

}  // namespace vask_test

#endif
