// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_ERROR_H
#define VASK_ERROR_H

/**
 * @file
 * @brief Errors with a code, a message and a chain of further errors.
 *
 * @since 2.0
 */

#include <string>

#include "vask_export.h"

/** Codes of a vask_error. Applications may add values of their own that collide with none of
 *  these.
 *
 * @since 2.0
 */
enum vask_error_code_t : int {
    VASK_ERR_NONE = 0,            /**< no error; the code of a new object */
    VASK_ERR_INVALID_URI = 101,   /**< a text could not be taken as a URI or file name */
    VASK_ERR_NOT_SPAWNED = 102,   /**< asked of a child that was not started */
    VASK_ERR_NO_CHILD_PROXY = 103 /**< the child is not on the bus yet; nothing was sent */
};

/**
 * @brief A message and the chain of errors behind it.
 *
 * An error owns its successors: whatever is chained is copied first, so chains share no nodes and
 * deleting the head deletes the chain. Not for use from two threads at once.
 *
 * @since 2.0
 */
class VASK_EXPORT vask_abstract_error {
public:
    /** No successor, code 0, no message. */
    vask_abstract_error();

    /**
     * Copies code, message and the whole chain; what dump_errors() collected is not copied.
     *
     * @param source  what is copied
     */
    vask_abstract_error(const vask_abstract_error& source);

    /**
     * Becomes what a copy would be.
     *
     * @param source  what is copied; may be a member of this very chain
     * @return this object
     */
    vask_abstract_error& operator=(const vask_abstract_error& source);

    /** Deletes the whole chain. */
    virtual ~vask_abstract_error();

    /** @return a new copy of this error and of its chain; the caller deletes it */
    virtual vask_abstract_error* clone() const = 0;

    /** @return the message; valid until the error changes or ends */
    const std::string& get_message() const;

    /** @param message  replaces the message; carries no line end by custom */
    void set_message(std::string message);

    /** @return the next error of the chain or null; it stays this object's */
    vask_abstract_error* get_next() const;

    /**
     * Replaces the successor, and with it the rest of the chain, by a copy.
     *
     * @param error  copied with its chain and left to the caller; it may be a member of this
     *               object's own chain; null changes nothing
     */
    void set_next(const vask_abstract_error* error);

    /**
     * Appends the chain to the collected text, one error a line, each indented by one blank more
     * than the one before.
     *
     * @param depth  indentation of this error, in blanks; from 1 up a line break comes first
     * @return the collected text: a second call appends the same text again. It stays this
     *         object's
     */
    std::string& dump_errors(int depth);

protected:
    /** The next error, owned; null at the end of the chain. */
    vask_abstract_error* next;

    /** What vask_error::get_code() returns. */
    vask_error_code_t code;

    /** What get_message() returns. */
    std::string message;

    /** What dump_errors() has collected so far. */
    std::string dump_text;
};

/**
 * @brief An error with a code: what operations of the library fill when they fail.
 *
 * @since 2.0
 */
class VASK_EXPORT vask_error : public vask_abstract_error {
public:
    /** No error: code 0, no message, no successor. */
    vask_error();

    /** @param source  copied with its chain */
    vask_error(const vask_error& source);

    /**
     * Becomes what a copy would be.
     *
     * @param source  what is copied; may be a member of this very chain
     * @return this object
     */
    vask_error& operator=(const vask_error& source);

    ~vask_error() override;

    /** @return a new copy with its chain; the caller deletes it */
    vask_error* clone() const override;

    /** @return the code, ::VASK_ERR_NONE for a new error */
    vask_error_code_t get_code() const;

    /** @param code  replaces the code; any value */
    void set_code(vask_error_code_t code);
};

#endif
