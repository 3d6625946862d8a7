// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_EXPORT_H
#define VASK_EXPORT_H

/**
 * @file
 * @brief The macros that make a class visible outside the library, but not its private functions.
 *
 * @since 2.0
 */

/** The library is built with hidden visibility; only what carries this macro can be linked
 *  against. */
#define VASK_EXPORT __attribute__((visibility("default")))

/** A private function of an exported class: only the library calls it, and it may change at any
 *  time. */
#define VASK_HIDDEN __attribute__((visibility("hidden")))

#endif
