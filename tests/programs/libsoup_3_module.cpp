// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Looks like a program that has libsoup 3 inside it to whoever looks for its symbols.

extern "C" void soup_date_time_new_from_http_string() {}
