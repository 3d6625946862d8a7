#ifndef VASK_EXPORT_H
#define VASK_EXPORT_H

/**
 * @file
 * @brief The one macro that makes a class or function visible outside the library.
 */

/** The library is built with hidden visibility; only what carries this macro can be linked
 *  against. */
#define VASK_EXPORT __attribute__((visibility("default")))

#endif
