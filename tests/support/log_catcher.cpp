#include "log_catcher.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>

namespace vask_test {

namespace {

log_catcher* innermost = nullptr;

void redirect_stdout(int fd) {
    std::fflush(stdout);
    dup2(fd, STDOUT_FILENO);
}

}  // namespace

log_catcher::log_catcher()
    : outer_(innermost),
      memory_(memfd_create("log_catcher", MFD_CLOEXEC)),
      original_(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3)),
      original_flags_(fcntl(STDOUT_FILENO, F_GETFD)) {
    if (memory_ < 0 || original_ < 0) {
        throw std::runtime_error(std::string("log_catcher: ") + std::strerror(errno));
    }
    // Children may open it anew by way of /proc, with an offset of their own.
    fcntl(memory_, F_SETFL, O_APPEND);
    redirect_stdout(memory_);
    innermost = this;
}

log_catcher::~log_catcher() {
    const std::string caught = testing::Test::HasFailure() ? text() : "";
    redirect_stdout(original_);
    fcntl(STDOUT_FILENO, F_SETFD, original_flags_);
    close(original_);
    close(memory_);
    innermost = outer_;
    if (caught.empty()) {
        return;
    }
    std::printf("--- caught output:\n%s\n--- end of caught output\n", caught.c_str());
    std::fflush(stdout);
}

std::string log_catcher::text() const {
    std::fflush(stdout);
    std::string result;
    char buffer[4096];
    ssize_t length;
    while ((length = pread(memory_, buffer, sizeof buffer, static_cast<off_t>(result.size()))) >
           0) {
        result.append(buffer, static_cast<size_t>(length));
    }
    return result;
}

void log_catcher::clear() {
    std::fflush(stdout);
    if (ftruncate(memory_, 0) != 0) {
        throw std::runtime_error("log_catcher: cannot be cleared");
    }
}

void log_catcher::suspend() {
    if (!innermost) {
        return;
    }
    const log_catcher* outermost = innermost;
    while (outermost->outer_) {
        outermost = outermost->outer_;
    }
    redirect_stdout(outermost->original_);
}

void log_catcher::resume() {
    if (innermost) {
        redirect_stdout(innermost->memory_);
    }
}

}  // namespace vask_test
