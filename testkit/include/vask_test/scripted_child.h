// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_SCRIPTED_CHILD_H
#define VASK_TEST_SCRIPTED_CHILD_H

/**
 * @file
 * @brief A child that does what a test tells it, to try a parent with.
 */

#include <signal.h>
#include <sys/types.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "vask_object.h"

/** The program behind it: a path, or a name that PATH has. */
#ifndef VASK_TEST_SCRIPTED_CHILD
#define VASK_TEST_SCRIPTED_CHILD "vask-scripted-child"
#endif

namespace vask_test {

/**
 * What a scripted child does in one situation: actions that it does in the order in which they are
 * added here. Valid as long as the scripted_child it comes from.
 */
class child_cue {
public:
    /** Takes a line of a script. */
    typedef std::function<void(const std::string& line)> line_taker;

    /** @param add  is given every action, as a line of the script */
    explicit child_cue(line_taker add) : m_add(std::move(add)) {}

    /** @name Answers, in the handler of a command
     *  A command without one of them succeeds with an empty reply.
     */
    ///@{
    /** @param text  the reply, valid UTF-8 @return this */
    child_cue& reply(const std::string& text);
    /** Replies the argument. @return this */
    child_cue& echo();
    /** The call fails. @return this */
    child_cue& fail();
    ///@}

    /** @name Signals */
    ///@{
    /** @param signal_id  the signal @param data  its text, valid UTF-8 @return this */
    child_cue& emit(int signal_id, const std::string& data = "");
    /** Raises the same signal many times, with the data "1", "2" and so on.
     *  @param signal_id  the signal @param count  how often @return this */
    child_cue& flood(int signal_id, int count);
    ///@}

    /** @name Slowness */
    ///@{
    /** Serves nothing for some time. @param msec  that time @return this */
    child_cue& wait(int msec);
    /** Serves nothing any more. SIGTERM still ends it. @return this */
    child_cue& hang();
    /** Stops as by SIGSTOP, until somebody sends SIGCONT. @return this */
    child_cue& stop();
    ///@}

    /** @name The end */
    ///@{
    /** Dies by a signal, without a core file. @param signal  its number @return this */
    child_cue& crash(int signal = SIGABRT);
    /** Ends at once, without a reply. @param status  the exit status @return this */
    child_cue& exit(int status);
    /** Leaves the main loop, after the reply. @param status  the exit status @return this */
    child_cue& quit(int status = 0);
    /** Is deaf to SIGTERM from now on. @return this */
    child_cue& ignore_sigterm();
    ///@}

    /** @name The bus */
    ///@{
    /** Joins the bus now, and not when all that is done at the start is done. @return this */
    child_cue& join_bus();
    /** Does not join the bus at the start; scripted_child::now() can have it do so. @return this */
    child_cue& stay_off_bus();
    /** Gives its name back but stays connected. @return this */
    child_cue& release_name();
    /** Takes its name again. @return this */
    child_cue& take_name();
    /** Loses the connection to the bus, after which a child ends with status 1. @return this */
    child_cue& lose_bus();
    ///@}

    /** @name Output */
    ///@{
    /** Logs a line, under the name of the program. @param level  its level @param text  without
     *  line end @return this */
    child_cue& log(vask_print_level level, const std::string& text);
    /** Prints a line to standard output. @param text  without line end @return this */
    child_cue& print(const std::string& text);
    ///@}

private:
    child_cue& add(const std::string& verb);
    child_cue& add(const std::string& verb, const std::string& text);

    line_taker m_add;
};

/**
 * A program that a parent can start as its child, and that does what the test says.
 *
 *     scripted_child child("notes_child");
 *     child.on_command(NOTES_ADD).emit(NOTES_ADDED, "milk").reply("1");
 *     child.on_command(NOTES_COUNT).hang();
 *     my_bridge bridge(child.program());
 *
 * What is not scripted is not supported, as with a real child. The same situation given several
 * times is a sequence: the first command 7 does what the first on_command(7) says, the second what
 * the second one says, and all that follow what the last one says. The process that is started
 * first does what the first at_start() says, and so on.
 *
 * The program has the name that is given here, takes any arguments, and ends with the thread that
 * has started it. Its script is read when it starts. What it receives is written into a file, which
 * is how the test knows of it also after a crash.
 *
 * Functions that wait run the default main loop meanwhile.
 */
class scripted_child {
public:
    /** @param name        file name of the program, which tools find it by
     *  @param executable  what it is a link to */
    explicit scripted_child(const std::string& name = "scripted_child",
                            const std::string& executable = VASK_TEST_SCRIPTED_CHILD);
    /** Kills the processes that are left; whoever has started them reaps them. */
    ~scripted_child();
    scripted_child(const scripted_child&) = delete;
    scripted_child& operator=(const scripted_child&) = delete;

    /** @return the path to start it by */
    const std::string& program() const { return m_program; }

    /** @name The script */
    ///@{
    /** Before it joins the bus. @return what it does then */
    child_cue at_start();
    /** @param id  the command @return what it does on it */
    child_cue on_command(int id);
    /** A command that has no part of its own in the script. @return what it does on it */
    child_cue on_any_command();
    /** SetWindow. @return what it does on it */
    child_cue on_window();
    /** SIGTERM, which otherwise ends it. The main loop has to run for that. @return what it does */
    child_cue on_sigterm();
    ///@}

    /** @name The process that was started last */
    ///@{
    /**
     * Waits until a process was started and listens. A bridge that has just met it may not hear its
     * signals yet: that it wants to is still on its way to the bus, until the child has answered
     * it.
     *
     * @param deadline_msec  how long to wait; std::runtime_error is thrown when there is none then
     * @return what it does as soon as its main loop runs
     */
    child_cue now(int deadline_msec = 30000);
    /** @return its process id, or -1 before the first start */
    pid_t pid() const;
    ///@}

    /** @name What has happened
     *
     * One line for each event, of all processes in the order of time:
     *
     *     started ARGUMENT...
     *     joined
     *     command ID ARGUMENT
     *     window X Y W H ID
     *     sigterm
     *     ended STATUS
     *
     * The last one is missing when the process ends in another way than by leaving its main loop.
     */
    ///@{
    /** @param pid  the process, or 0 for all of them @return the lines */
    std::vector<std::string> journal(pid_t pid = 0) const;
    /** @return the lines that begin with "command" and "window", of all processes */
    std::vector<std::string> calls() const;
    /** @param line  a whole line @param deadline_msec  how long to wait @return whether it is there
     *  in time */
    bool wait_for(const std::string& line, int deadline_msec = 30000) const;
    /** @param count  number of lines @param deadline_msec  how long to wait @return whether there
     *  are as many calls() in time */
    bool wait_for_calls(std::size_t count, int deadline_msec = 30000) const;
    ///@}

private:
    struct entry {
        pid_t pid;
        std::string line;
    };

    child_cue add_section(const std::string& head);
    void write_script() const;
    std::vector<entry> entries() const;
    void send_order(pid_t pid, const std::string& line, int deadline_msec) const;

    std::string m_directory;
    std::string m_program;
    std::vector<std::string> m_sections;  // of the script, with their lines
};

}  // namespace vask_test

#endif
