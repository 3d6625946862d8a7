// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "vask_test/log_catcher.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace vask_test {

namespace {

log_catcher* innermost = nullptr;
bool (*test_has_failed)() = nullptr;

void redirect_stdout(int fd) {
    std::fflush(stdout);
    dup2(fd, STDOUT_FILENO);
}

}  // namespace

log_catcher::log_catcher()
    : m_outer(innermost),
      m_memory(memfd_create("log_catcher", MFD_CLOEXEC)),
      m_original(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3)),
      m_original_flags(fcntl(STDOUT_FILENO, F_GETFD)) {
    if (m_memory < 0 || m_original < 0) {
        throw std::runtime_error(std::string("log_catcher: ") + std::strerror(errno));
    }
    // Children may open it anew by way of /proc, with an offset of their own.
    fcntl(m_memory, F_SETFL, O_APPEND);
    redirect_stdout(m_memory);
    innermost = this;
}

log_catcher::~log_catcher() {
    const std::string caught = test_has_failed && test_has_failed() ? text() : "";
    if (innermost == this) {
        redirect_stdout(m_original);
        fcntl(STDOUT_FILENO, F_SETFD, m_original_flags);
        innermost = m_outer;
    } else {
        hand_down();
    }
    close(m_original);
    close(m_memory);
    if (caught.empty()) {
        return;
    }
    std::printf("--- caught output:\n%s\n--- end of caught output\n", caught.c_str());
    std::fflush(stdout);
}

// One that began later lives on, and gives back what this one has found.
void log_catcher::hand_down() {
    log_catcher* inner = innermost;
    while (inner->m_outer != this) {
        inner = inner->m_outer;
    }
    inner->m_outer = m_outer;
    std::swap(inner->m_original, m_original);
    inner->m_original_flags = m_original_flags;
}

std::string log_catcher::text() const {
    std::fflush(stdout);
    std::string result;
    char buffer[4096];
    ssize_t length;
    while ((length = pread(m_memory, buffer, sizeof buffer, static_cast<off_t>(result.size()))) >
           0) {
        result.append(buffer, static_cast<size_t>(length));
    }
    return result;
}

void log_catcher::clear() {
    std::fflush(stdout);
    if (ftruncate(m_memory, 0) != 0) {
        throw std::runtime_error("log_catcher: cannot be cleared");
    }
}

void log_catcher::show_after(bool (*has_failed)()) {
    test_has_failed = has_failed;
}

void log_catcher::suspend() {
    if (!innermost) {
        return;
    }
    const log_catcher* outermost = innermost;
    while (outermost->m_outer) {
        outermost = outermost->m_outer;
    }
    redirect_stdout(outermost->m_original);
}

void log_catcher::resume() {
    if (innermost) {
        redirect_stdout(innermost->m_memory);
    }
}

}  // namespace vask_test
