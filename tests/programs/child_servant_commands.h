// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_CHILD_SERVANT_COMMANDS_H
#define VASK_TEST_CHILD_SERVANT_COMMANDS_H

/** What child_servant does on command. */
enum servant_command : int {
    SERVANT_ECHO = 1,              /**< replies with the argument */
    SERVANT_NO_REPLY = 2,          /**< succeeds and stores no reply */
    SERVANT_LITERAL = 3,           /**< replies with a literal */
    SERVANT_FAIL = 4,              /**< fails, although it has stored a reply */
    SERVANT_INVALID_UTF8 = 5,      /**< replies with text that is not UTF-8 */
    SERVANT_EMIT = 6,              /**< raises signal 7 with the argument */
    SERVANT_EMIT_NULL = 7,         /**< raises signal 8 without data */
    SERVANT_EMIT_INVALID_UTF8 = 8, /**< raises signal 9 with text that is not UTF-8 */
    SERVANT_LAST_WINDOW = 9,       /**< replies with what SetWindow has brought */
    SERVANT_QUIT = -10,            /**< leaves the main loop with the argument as its code */
    SERVANT_LONG_REPLY = 11,       /**< replies with as many characters as the argument says */
    SERVANT_LONG_FAREWELL = 12,    /**< the same, and leaves the main loop with code 8 */
    SERVANT_MANY_SIGNALS = 13,     /**< raises the signals of a farewell, and leaves with code 9 */
    SERVANT_THROW = 14,            /**< throws the argument */
    SERVANT_THROW_NUMBER = 15,     /**< throws what is no exception of the standard library */
    SERVANT_THROW_IN_WINDOW = 16   /**< has the next SetWindow throw the argument */
};

/** A farewell: so many signals, numbered from 0, each with a text of that length. */
constexpr int farewell_signals = 2000;
constexpr int farewell_signal_length = 1024;

constexpr char servant_literal[] = "a literal";
constexpr char text_that_is_not_utf8[] = "caf\xe9";

#endif
