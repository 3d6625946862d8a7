#ifndef VASK_URI_DECODE_H
#define VASK_URI_DECODE_H

#include "foundation/glib_handles.h"

// The text with its percent-escapes decoded by libsoup 2.4's soup_uri_decode(). That is taken at
// the first call and stays in the process; where it cannot be had, or libsoup 3 is in the process,
// which libsoup 2.4 would end, decode_uri_without_libsoup() does the work. Null if
// soup_uri_decode() gives null. From any thread.
unique_g_text decode_uri(const char* text);

// What soup_uri_decode() gives for every text: an escape is "%" and two hexadecimal digits of
// either case, anything else stays as it is, and "%00" ends the text.
unique_g_text decode_uri_without_libsoup(const char* text);

#endif
