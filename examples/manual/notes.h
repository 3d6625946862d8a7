// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef NOTES_H
#define NOTES_H

// What the notes child, its parent and its tool have agreed on.
enum notes_command { NOTES_ADD = 1, NOTES_COUNT = 2, NOTES_BREAK = 3 };
enum notes_signal { NOTES_ADDED = 1 };

#endif
