// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEXT_CHANNEL_H
#define VASK_TEXT_CHANNEL_H

#include <glib.h>

// Has a buffered channel read in a way that no peer can upset. GLib decodes what one read has
// brought, and ends the process when that holds no whole character: such bytes are held back until
// more of them have come. Bytes that are no text fail with the read that comes to them, also when
// nothing follows; and what the channel has read ahead wakes every watch on it. May be called
// again.
void keep_characters_whole(GIOChannel* channel);

// Whether the stream is over, behind a whole character. GLib reports a failure instead of the end
// when it holds bytes that make no character, such as a last shift.
bool has_ended_whole(GIOChannel* channel);

// Whether a read would give something, or fail, without a look at the descriptor.
bool has_read_ahead(GIOChannel* channel);

#endif
