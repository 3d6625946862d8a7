// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <string.h>

#include <algorithm>

#include "vask_socket.h"

vask_sock_read_context::vask_sock_read_context()
    : read_req_size(0),
      least_size(0),
      received(0),
      buffer(nullptr),
      capacity(0),
      reading(false),
      complete(false),
      status(1),
      timeout(0),
      timer_id(0) {}

vask_sock_read_context::~vask_sock_read_context() {
    delete_buffer();
}

bool vask_sock_read_context::reset(unsigned long size, unsigned long least) {
    read_req_size = size;
    least_size = std::min(size, least);
    received = 0;
    reading = false;
    complete = false;
    delete_buffer();
    if (size <= capacity) {
        return true;
    }
    // The capacity stays 0: what one request has received is gone when the next one is set.
    buffer = static_cast<char*>(g_try_malloc(size));
    return buffer != nullptr;
}

char* vask_sock_read_context::curr_buf_ptr() {
    return buffer + received;
}

void vask_sock_read_context::copy(void* dest, unsigned long offset) const {
    if (buffer != nullptr && received > offset) {
        memcpy(dest, buffer + offset, received - offset);
    }
}

void vask_sock_read_context::delete_buffer() {
    g_free(buffer);
    buffer = nullptr;
    capacity = 0;
}
