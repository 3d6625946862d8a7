// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_URI_DECODE_H
#define VASK_URI_DECODE_H

#include "foundation/glib_handles.h"

// Decodes the percent-escapes of a text with soup_uri_decode() of libsoup 2.4. The first call loads
// libsoup, which stays in the process. If it cannot be loaded, or libsoup 3 is in the process,
// which libsoup 2.4 would end, it decodes as decode_uri_without_libsoup() does. Null if
// soup_uri_decode() returns null. May be called from any thread.
unique_g_text decode_uri(const char* text);

// Returns what soup_uri_decode() returns for every text: an escape is "%" and two hexadecimal
// digits of either case, anything else stays as it is, and "%00" ends the text.
unique_g_text decode_uri_without_libsoup(const char* text);

#endif
