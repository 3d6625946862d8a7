// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_SCRIPTED_PARENT_H
#define VASK_TEST_SCRIPTED_PARENT_H

/**
 * @file
 * @brief A parent that does what a test tells it, to try a child with.
 */

#include <sys/types.h>

#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

#include "vask_test/bus_client.h"
#include "vask_test/resource_count.h"
#include "vask_test/served_child.h"
#include "vask_test/started_process.h"

namespace vask_test {

/** What became of a command. */
struct child_answer {
    bool ok = false;   /**< whether the command was handled */
    std::string reply; /**< empty if it was not */
    std::string error; /**< name of the bus's error, or "no answer within N ms"; empty if it was */
};

/** For failure messages. @param answer  what is shown @param out  where */
void PrintTo(const child_answer& answer, std::ostream* out);

/** A signal of a child. */
struct raised_signal {
    int id = 0;       /**< the signal */
    std::string data; /**< its text */
};

/** @param a,b  what is compared @return whether they are the same */
bool operator==(const raised_signal& a, const raised_signal& b);
/** For failure messages. @param signal  what is shown @param out  where */
void PrintTo(const raised_signal& signal, std::ostream* out);

/**
 * Starts a child program as a bridge would, meets it on the session bus, calls it, and hears of its
 * signals and its end.
 *
 *     scripted_parent parent;
 *     ASSERT_TRUE(parent.start({"./notes_child"})) << parent.problem();
 *     EXPECT_EQ(parent.call(NOTES_ADD, "milk").reply, "1");
 *     EXPECT_TRUE(parent.wait_for_signal({NOTES_ADDED, "milk"}));
 *     EXPECT_EQ(parent.end_child(), 0);
 *
 * It is not a bridge but a stranger that knows how a bridge behaves, so that it can wait as long or
 * as short as the test wants, tells how the child has ended, and sees what it holds. Signals that
 * the child raises before it serves its first call are lost, as they may be for every parent.
 *
 * Freed memory of the child is overwritten, by MALLOC_PERTURB_ in its environment unless the test
 * has one of its own: a reply that was freed too early does not look right by accident.
 *
 * Functions that wait run the default main loop meanwhile.
 */
class scripted_parent {
public:
    /** How long to wait if nothing else is said, in milliseconds. */
    static constexpr int patience_msec = 30000;

    scripted_parent();
    /** Kills the child if it still runs. */
    ~scripted_parent();
    scripted_parent(const scripted_parent&) = delete;
    scripted_parent& operator=(const scripted_parent&) = delete;

    /** @name The child */
    ///@{
    /**
     * Starts a program and waits until it serves calls. One that was started before is killed.
     *
     * @param command        the program and its arguments
     * @param variables      "NAME=value" each, behind those of the test as a bridge does it: of two
     *                       with one name programs see the first
     * @param deadline_msec  how long to wait
     * @return whether it serves calls in time; otherwise problem() tells why not
     */
    bool start(const std::vector<std::string>& command,
               const std::vector<std::string>& variables = {}, int deadline_msec = patience_msec);
    /** Starts a program and does not wait. @param command  as above @param variables  as above */
    void start_only(const std::vector<std::string>& command,
                    const std::vector<std::string>& variables = {});
    /** @param deadline_msec  how long to wait @return whether it serves calls in time */
    bool wait_until_met(int deadline_msec = patience_msec);
    /** @return why the last start() or wait_until_met() has failed */
    const std::string& problem() const { return m_problem; }
    /** @return its process id, also when it has ended; -1 before the first start */
    pid_t pid() const;
    /** @return what it holds now: descriptors and processes; and the shared objects of all */
    resource_count resources() const;
    ///@}

    /** @name Calls */
    ///@{
    /** @param id  the command @param argument  valid UTF-8 @param deadline_msec  how long to wait
     *  @return what came of it */
    child_answer call(int id, const std::string& argument = "", int deadline_msec = patience_msec);
    /** Does not wait, and wants no reply. @param id  the command @param argument  valid UTF-8 */
    void send(int id, const std::string& argument = "");
    /** Names the window to draw into. @param x,y,w,h  its geometry @param id  its X window id
     *  @param deadline_msec  how long to wait @return what came of it */
    child_answer set_window(int x, int y, int w, int h, unsigned int id,
                            int deadline_msec = patience_msec);
    ///@}

    /** @name Signals */
    ///@{
    /** @return what has come since it was met, or since forget_signals() */
    std::vector<raised_signal> signals();
    /** Forgets what has come. */
    void forget_signals();
    /** @param count  how many @param deadline_msec  how long to wait @return whether as many have
     *  come in time */
    bool wait_for_signals(std::size_t count, int deadline_msec = patience_msec);
    /** @param wanted  a signal @param deadline_msec  how long to wait @return whether it has come
     * in time */
    bool wait_for_signal(const raised_signal& wanted, int deadline_msec = patience_msec);
    ///@}

    /** @name The end */
    ///@{
    /** What wait_for_end() gives when the child still runs. */
    static constexpr int still_runs = -1000;
    /** @param signal  sent to the child */
    void send_signal(int signal);
    /** @param deadline_msec  how long to wait @return its exit status, minus the signal that has
     *  ended it, or #still_runs. Signals that it has raised before are there then */
    int wait_for_end(int deadline_msec = patience_msec);
    /** Asks the child to end as a bridge does, by SIGTERM. @param deadline_msec  how long to wait
     *  @return as wait_for_end() */
    int end_child(int deadline_msec = patience_msec);
    ///@}

private:
    bool has_ended();
    bool fail(const std::string& problem);
    child_answer finish(const message_ptr& message, int deadline_msec);

    bus_client m_bus;
    std::unique_ptr<started_process> m_process;
    std::string m_address;  // of the child's connection, once it is met
    std::vector<raised_signal> m_signals;
    std::size_t m_signals_read = 0;
    std::string m_problem;
};

}  // namespace vask_test

#endif
