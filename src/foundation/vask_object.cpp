// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "vask_object.h"

#include <errno.h>
#include <pthread.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include <iterator>
#include <mutex>

#include "foundation/log_place.h"
#include "foundation/message_line.h"
#include "foundation/signal_block.h"

namespace {

const char source_unit[] = "vask_object";

const char* const level_names[] = {"EMERG", "BUG", "FATAL", "ERR", "WARN", "NOTICE", "INFO", "DBG"};
constexpr int highest_level = static_cast<int>(std::size(level_names)) - 1;

constexpr size_t format_buffer_size = 4096;

const char* level_name_or_null(vask_print_level level) {
    return level >= 0 && level <= highest_level ? level_names[level] : nullptr;
}

class errno_keeper {
public:
    errno_keeper() : m_errno(errno) {}
    ~errno_keeper() { errno = m_errno; }

private:
    const int m_errno;
};

message_header header_of(const char* name, vask_print_level level, const void* address) {
    const bool shows_time = (vask_object::print_flags & VASK_P_FLAG_TIME) != 0;
    return {name, vask_object::my_pid, level_name_or_null(level), address,
            shows_time ? vask_object::vask_gettime(VASK_TIME_SEC) : 0};
}

bool goes_to_syslog() {
    const char* value = getenv("VASK_SYSLOG");
    return value != nullptr && strcmp(value, "1") == 0;
}

// syslog has one identity for the whole process, which another thread's message would change
// between the three calls.
class syslog_turn {
public:
    syslog_turn() {
        const no_signals quiet;
        s_mutex.lock();
        s_is_mine = true;
    }
    ~syslog_turn() {
        const no_signals quiet;
        s_is_mine = false;
        s_mutex.unlock();
    }
    syslog_turn(const syslog_turn&) = delete;
    syslog_turn& operator=(const syslog_turn&) = delete;

    // Otherwise a process that is forked meanwhile would find this lock, and the one that the C
    // library takes for syslog, held by a thread that it does not have. A signal handler may fork
    // on the very thread that has the turn: it must not wait for itself.
    static void keep_from_forks() { pthread_atfork(begin_fork, end_fork, end_fork); }

private:
    // Between the lock and the note of whose it is, no handler may run on this thread.
    struct no_signals {
        no_signals() { block.block(); }
        signal_block block;
    };

    static void begin_fork() {
        if (!s_is_mine) {
            s_mutex.lock();
        }
    }
    static void end_fork() {
        if (!s_is_mine) {
            s_mutex.unlock();
        }
    }

    static std::mutex s_mutex;
    static thread_local bool s_is_mine;
};

std::mutex syslog_turn::s_mutex;
thread_local bool syslog_turn::s_is_mine = false;

__attribute__((constructor)) void keep_syslog_from_forks() {
    syslog_turn::keep_from_forks();
}

void print_to_syslog(const char* name, vask_print_level level, const char* format, va_list args) {
    const syslog_turn turn;
    openlog(name, LOG_PID | LOG_CONS, LOG_USER);
    vsyslog(level, format, args);
    closelog();
}

// Not inlined, so that a suppressed message costs its caller one comparison and nothing more.
__attribute__((noinline, cold)) void print_message(const char* name, vask_print_level level,
                                                   const void* address, const char* format,
                                                   va_list args) {
    errno_keeper keeper;
    if (goes_to_syslog()) {
        print_to_syslog(name, level, format, args);
        return;
    }
    print_message_line(header_of(name, level, address), format, args);
}

std::string format_text(const char* format, va_list args) {
    char buffer[format_buffer_size];
    const int length = vsnprintf(buffer, format_buffer_size, format, args);
    if (length < 0) {
        vask_object::vask_p("vask_snprintf", VASK_P_ERR, "Failed to call vsnprintf\n");
        return std::string();
    }
    // Only this one length is refused; a longer text is cut.
    if (length == static_cast<int>(format_buffer_size)) {
        vask_object::vask_p("vask_snprintf", VASK_P_ERR, "The length of input may be too long.\n");
        return std::string();
    }
    return std::string(buffer);
}

}  // namespace

int vask_object::my_pid = 0;
int vask_object::print_msg_level = -1;
unsigned int vask_object::print_flags = 0;
strlist vask_object::__empty_strlist;

vask_object::vask_object() : obj_name("<No Name>"), shm_lock_sem(nullptr) {
    if (print_msg_level < 0) {
        set_print_msg_level();
    }
    if (my_pid == 0) {
        my_pid = getpid();
    }
}

vask_object::~vask_object() {
    vask_p(VASK_P_DBG, "%s\n", "virtual vask_object::~vask_object()");
    if (shm_lock_sem != nullptr) {
        shm_unlock();
    }
}

void vask_object::set_print_msg_level() {
    set_print_msg_level_level();
    set_print_msg_level_flags();
}

void vask_object::set_print_msg_level_level() {
    print_msg_level = VASK_P_INFO;

    const char* value = getenv("VASK_MSG_LV");
    if (value == nullptr || *value == '\0') {
        return;
    }
    for (int level = 0; level <= highest_level; ++level) {
        if (strcmp(value, level_names[level]) == 0) {
            print_msg_level = level;
            return;
        }
    }
    char* end = nullptr;
    const unsigned long number = strtoul(value, &end, 10);
    if (end != value && *end == '\0' && number <= static_cast<unsigned long>(highest_level)) {
        print_msg_level = static_cast<int>(number);
        return;
    }

    printf("'%s' is not invalid for VASK_MSG_LV.\n", value);
    printf("Allowed strings are ");
    for (const char* name : level_names) {
        printf("'%s' ", name);
    }
    printf(", or 0 - %d\n", highest_level);
}

void vask_object::set_print_msg_level_flags() {
    const char* value = getenv("VASK_MSG_FLAGS");
    if (value == nullptr) {
        return;
    }
    for (; *value != '\0'; ++value) {
        if (*value == 'T') {
            print_flags |= VASK_P_FLAG_TIME;
        } else if (*value == 'A') {
            print_flags |= VASK_P_FLAG_ADDR;
        }
    }
}

void vask_object::vask_p(vask_print_level level, const char* format, ...) const {
    if (level > print_msg_level) {
        return;
    }
    va_list args;
    va_start(args, format);
    print_message(obj_name, level, this, format, args);
    va_end(args);
}

void vask_object::vask_p(const char* name, vask_print_level level, const char* format, ...) {
    if (print_msg_level < 0) {
        errno_keeper keeper;
        set_print_msg_level();
    }
    if (level > print_msg_level) {
        return;
    }
    if (my_pid == 0) {
        my_pid = getpid();
    }
    va_list args;
    va_start(args, format);
    print_message(name, level, nullptr, format, args);
    va_end(args);
}

void print_message_of(const char* name, const void* address, vask_print_level level,
                      const char* format, ...) {
    if (level > vask_object::print_msg_level) {
        return;
    }
    va_list args;
    va_start(args, format);
    print_message(name, level, address, format, args);
    va_end(args);
}

void vask_object::vask_p_header(const char* name, vask_print_level level, const void* address) {
    print_message_header(header_of(name, level, address));
}

const char* vask_object::get_vask_p_level_string(vask_print_level level) {
    if (level > highest_level) {
        vask_p("vask", VASK_P_ERR, VASK_AT("level is too high (%d)"), level);
        return nullptr;
    }
    return level_name_or_null(level);
}

std::string vask_object::vask_sprintf(const char* format, ...) {
    va_list args;
    va_start(args, format);
    std::string text = format_text(format, args);
    va_end(args);
    return text;
}

std::string vask_object::vask_snprintf(const char* format, ...) {
    va_list args;
    va_start(args, format);
    std::string text = format_text(format, args);
    va_end(args);
    return text;
}

double vask_object::vask_gettime(vask_time_unit unit) {
    struct timespec now;
    if (clock_gettime(CLOCK_MONOTONIC, &now) != 0) {
        return -1.0;
    }
    double factor = 1.0;
    switch (unit) {
        case VASK_TIME_SEC:
            break;
        case VASK_TIME_MSEC:
            factor = 1000.0;
            break;
        case VASK_TIME_USEC:
            factor = 1000000.0;
            break;
        case VASK_TIME_NSEC:
            factor = 1000000000.0;
            break;
    }
    return (static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9) * factor;
}
