// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Compiled only for the precompiled header that all tests use.
#include <gmock/gmock.h>
