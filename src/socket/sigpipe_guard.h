// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_SIGPIPE_GUARD_H
#define VASK_SIGPIPE_GUARD_H

#include <glib.h>

#include <optional>

#include "foundation/withheld_signal.h"

// While it lives, no SIGPIPE that writing to a channel raises in this thread does any harm. For a
// channel of the library, which raises none, it does nothing; for any other it withholds the
// signal.
class sigpipe_guard {
public:
    explicit sigpipe_guard(GIOChannel* channel);

private:
    std::optional<withheld_signal> m_sigpipe;
};

#endif
