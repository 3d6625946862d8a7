// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_MALLOCED_TEXT_H
#define VASK_MALLOCED_TEXT_H

#include <stdlib.h>

#include <memory>

struct free_deleter {
    void operator()(char* text) const { free(text); }
};

// Owner of characters that malloc() has given.
using unique_malloced_text = std::unique_ptr<char, free_deleter>;

#endif
