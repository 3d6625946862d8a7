/* SPDX-FileCopyrightText: 2026 The libvask authors */
/* SPDX-License-Identifier: MIT */

#ifndef NPAPI_NPTYPES_H
#define NPAPI_NPTYPES_H

/**
 * @file
 * @brief What the other headers of the plug-in interface need of the platform: numbers of fixed
 *        width, bool, and linkage.
 */

#include <stdint.h>

#ifndef __cplusplus
#include <stdbool.h>
#endif

#ifndef XP_UNIX
/** The platform is Unix. */
#define XP_UNIX 1
#endif

/** Lets an enumeration hold a number that is none of its enumerators, because the other side may
 *  send one. In C that is allowed anyway. */
#ifdef __cplusplus
#define NP_ENUM_BASE : unsigned int
#else
#define NP_ENUM_BASE
#endif

/** Makes a function visible outside the shared object. */
#define NP_VISIBILITY_DEFAULT __attribute__((visibility("default")))

/** Declares, with its result type, what a plug-in offers to the browser. */
#define NP_EXPORT(type) NP_VISIBILITY_DEFAULT type

/** A calling convention, of which this platform has one. */
#define NP_LOADDS

/** A calling convention, of which this platform has one. */
#define NP_CALLBACK

#endif
