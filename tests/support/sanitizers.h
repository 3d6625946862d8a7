// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_SANITIZERS_H
#define VASK_TEST_SANITIZERS_H

// Each compiler says in its own way that code is built with a sanitizer.
#if defined(__SANITIZE_THREAD__)
#define VASK_TEST_HAS_THREAD_SANITIZER
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define VASK_TEST_HAS_THREAD_SANITIZER
#endif
#endif

#if defined(__SANITIZE_ADDRESS__)
#define VASK_TEST_HAS_ADDRESS_SANITIZER
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define VASK_TEST_HAS_ADDRESS_SANITIZER
#endif
#endif

#endif
