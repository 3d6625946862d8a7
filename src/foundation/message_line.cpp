// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "foundation/message_line.h"

#include <errno.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <limits>

#include "foundation/malloced_text.h"
#include "vask_object.h"

namespace {

// Longer messages take memory from the heap.
constexpr size_t usual_room = 1024;

// How long a message waits for a standard output that does not block and takes nothing.
constexpr double longest_wait_msec = 1000;

// Set when a wait was in vain. From then on messages are dropped at once, until something is taken
// again: a reader who has stopped must not hold the program up for a second with every line.
// Changed under stdout's lock.
std::atomic<bool> output_is_stuck{false};

// Null when memory runs out: a message throws nothing.
unique_malloced_text new_room(size_t size) {
    return unique_malloced_text(static_cast<char*>(malloc(size)));
}

// A thread that is cancelled while it writes gives the lock back too.
class stdout_lock {
public:
    stdout_lock() { flockfile(stdout); }
    ~stdout_lock() { funlockfile(stdout); }
    stdout_lock(const stdout_lock&) = delete;
    stdout_lock& operator=(const stdout_lock&) = delete;
};

// Puts text together in a given place. What does not fit is counted, as snprintf() does.
class text_builder {
public:
    text_builder(char* room, size_t size) : m_room(room), m_size(size) {}

    void append(char c) { append(&c, 1); }

    void append(const char* text) {
        text = text != nullptr ? text : "(null)";
        append(text, strlen(text));
    }

    void append(int number) {
        char digits[std::numeric_limits<int>::digits10 + 2];
        char* end = std::to_chars(digits, digits + sizeof(digits), number).ptr;
        append(digits, static_cast<size_t>(end - digits));
    }

    __attribute__((format(printf, 2, 3))) void append_printf(const char* format, ...) {
        va_list args;
        va_start(args, format);
        append_vprintf(format, args);
        va_end(args);
    }

    void append_vprintf(const char* format, va_list args) {
        const size_t used = std::min(m_length, m_size);
        const int length = vsnprintf(m_room + used, m_size - used, format, args);
        m_failed = m_failed || length < 0;
        m_length += static_cast<size_t>(std::max(length, 0));
    }

    // Whether the C library refuses the text, however large the room.
    bool failed() const { return m_failed; }

    // Includes the zero that vsnprintf() puts at the end.
    size_t wanted_size() const { return m_length + 1; }

    bool is_whole() const { return !m_failed && wanted_size() <= m_size; }

    // The length of what is in the room.
    size_t length() const { return std::min(m_length, m_size - 1); }

private:
    void append(const char* text, size_t length) {
        if (m_length < m_size) {
            memcpy(m_room + m_length, text, std::min(length, m_size - m_length));
        }
        m_length += length;
    }

    char* const m_room;
    const size_t m_size;
    size_t m_length = 0;
    bool m_failed = false;
};

// Avoids printf where it can: a short message would spend a third of its time there, for the header
// alone.
void append_header(text_builder& line, const message_header& header) {
    if (vask_object::print_flags & VASK_P_FLAG_TIME) {
        line.append_printf("%.6f ", header.time);
    }
    if (vask_object::print_flags & VASK_P_FLAG_ADDR) {
        line.append_printf("[%s:%d:%p] %s: ", header.name, header.pid, header.address,
                           header.level_name);
        return;
    }
    line.append('[');
    line.append(header.name);
    line.append(':');
    line.append(header.pid);
    line.append("] ");
    line.append(header.level_name);
    line.append(": ");
}

text_builder build_header(char* room, size_t size, const message_header& header) {
    text_builder text(room, size);
    append_header(text, header);
    return text;
}

text_builder build_line(char* room, size_t size, const message_header& header, const char* format,
                        va_list args) {
    text_builder line = build_header(room, size, header);
    va_list own_args;
    va_copy(own_args, args);
    line.append_vprintf(format, own_args);
    va_end(own_args);
    return line;
}

double now_msec() {
    return vask_object::vask_gettime(VASK_TIME_MSEC);
}

class patience {
public:
    // False when it is exhausted.
    bool wait_for_room(int fd) {
        if (output_is_stuck.load(std::memory_order_relaxed)) {  // [P2]
            return false;
        }
        const double now = now_msec();
        m_end = m_end < 0 ? now + longest_wait_msec : m_end;
        if (now >= m_end) {
            output_is_stuck.store(true, std::memory_order_relaxed);  // [P2]
            return false;
        }
        pollfd output = {fd, POLLOUT, 0};
        poll(&output, 1, static_cast<int>(m_end - now) + 1);
        return true;
    }

    void renew() {
        output_is_stuck.store(false, std::memory_order_relaxed);  // [P2]
        m_end = -1;
    }

private:
    double m_end = -1;
};

// Returns how much was taken.
size_t write_out(int fd, const char* text, size_t length) {
    patience with_the_reader;
    size_t written = 0;
    while (written < length) {
        const ssize_t taken = write(fd, text + written, length - written);
        if (taken > 0) {
            with_the_reader.renew();
            written += static_cast<size_t>(taken);
        } else if (taken == 0 ||
                   (errno != EINTR && (errno != EAGAIN || !with_the_reader.wait_for_room(fd)))) {
            break;
        }
    }
    return written;
}

// Writes to the stream's descriptor, because a stream drops text when a signal interrupts it. The
// stream itself gets what is left: a stream without a descriptor takes it; another one fails once
// more and remembers that for ferror().
void put_out(const char* text, size_t length) {
    stdout_lock lock;
    fflush_unlocked(stdout);
    const int fd = fileno_unlocked(stdout);
    const size_t written = fd >= 0 ? write_out(fd, text, length) : 0;
    if (written < length) {
        fwrite_unlocked(text + written, 1, length - written, stdout);
        fflush_unlocked(stdout);
    }
}

// For a message that cannot be formatted as a whole: memory has run out, or the C library refuses
// the text and prints only what comes before.
void put_out_in_pieces(const message_header& header, const char* format, va_list args) {
    stdout_lock lock;
    print_message_header(header);
    vprintf(format, args);
    fflush_unlocked(stdout);
}

}  // namespace

void print_message_line(const message_header& header, const char* format, va_list args) {
    char usual[usual_room];
    const text_builder line = build_line(usual, sizeof(usual), header, format, args);
    if (line.is_whole()) {
        put_out(usual, line.length());
        return;
    }
    const unique_malloced_text room = line.failed() ? nullptr : new_room(line.wanted_size());
    if (room == nullptr) {
        put_out_in_pieces(header, format, args);
        return;
    }
    // Cut if an argument has grown meanwhile.
    put_out(room.get(), build_line(room.get(), line.wanted_size(), header, format, args).length());
}

void print_message_header(const message_header& header) {
    char usual[usual_room];
    const text_builder text = build_header(usual, sizeof(usual), header);
    const unique_malloced_text room = text.is_whole() ? nullptr : new_room(text.wanted_size());
    if (room == nullptr) {
        fwrite(usual, 1, text.length(), stdout);
        return;
    }
    fwrite(room.get(), 1, build_header(room.get(), text.wanted_size(), header).length(), stdout);
}
