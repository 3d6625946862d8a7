// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_BRIDGE_CHILD_COMMANDS_H
#define VASK_TEST_BRIDGE_CHILD_COMMANDS_H

/**
 * What bridge_child can be told to do. As arguments of the program:
 *
 *     --join-after-msec N     joins the bus only then
 *     --join-after-file PATH  joins the bus once that file exists
 *     --no-bus                never joins the bus; sleeps until it is ended
 *     --ignore-sigterm        cannot be ended politely
 *     --exit STATUS           ends at once
 *     --abort                 ends at once by SIGABRT
 *
 * It never outlives the process that has started it.
 */
enum bridge_child_command : int {
    /** Replies the argument. */
    CHILD_ECHO = 1,
    CHILD_FAIL,
    /** Succeeds without having stored a reply. */
    CHILD_REPLY_NULL,
    /** Replies the literal #bridge_child_literal. */
    CHILD_REPLY_LITERAL,
    CHILD_REPLY_INVALID_UTF8,
    /** Fails after having stored a reply. */
    CHILD_REPLY_AND_FAIL,
    /** "ID DATA": raises that signal, before the reply. */
    CHILD_RAISE_SIGNAL,
    /** Raises a signal without data; the argument is its id. */
    CHILD_RAISE_SIGNAL_WITHOUT_DATA,
    /** Replies the entries of the environment, in order, one a line. */
    CHILD_REPORT_ENVIRONMENT,
    /**
     * Replies what was received so far, in order, one a line: "Command ID ARGUMENT" and
     * "SetWindow X Y W H ID". This command itself takes no part.
     */
    CHILD_REPORT_JOURNAL,
    /** Replies how many lines the journal has. */
    CHILD_COUNT_JOURNAL,
    /** Serves nothing for that many milliseconds, then replies. */
    CHILD_SLEEP_MSEC,
    /** Dies by SIGABRT without replying. */
    CHILD_ABORT,
    /** Ends with that status, without replying. */
    CHILD_EXIT,
    /** Leaves the main loop with that status, after the reply. */
    CHILD_QUIT,
    /** Gives the well-known name back but stays connected. */
    CHILD_RELEASE_NAME,
    /** Takes the well-known name again, in the place of any other owner. */
    CHILD_REQUEST_NAME,
    /** From now on SIGTERM is ignored. */
    CHILD_IGNORE_SIGTERM,
    /** "COUNT": raises that many signals with id 1 and the data "1", "2" and so on, and ends. */
    CHILD_RAISE_SIGNALS_AND_EXIT,
    /** "COUNT PATH": creates the file PATH, and does the same once it has gone again. */
    CHILD_RAISE_SIGNALS_AND_EXIT_LATER,
    /** Forks a process that keeps this one's connection to the bus open, silently, until it is
     *  killed, and replies its id. */
    CHILD_LEAVE_CONNECTION_OPEN
};

/** An id that bridge_child has no handler for. */
constexpr int bridge_child_unknown_command = 4711;

constexpr const char* bridge_child_literal = "a reply that nobody may free";

#endif
