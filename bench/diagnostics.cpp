// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// A diagnostic message: printed, against the two printf and the fflush that write the same line,
// and suppressed, against a call that does nothing.

#include <fcntl.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include "empty_call.h"
#include "table_row.h"
#include "vask_object.h"

namespace {

class talker : public vask_object {
public:
    talker() { obj_name = "bench"; }
};

// Sends standard output somewhere else while it lives.
class redirected_stdout {
public:
    explicit redirected_stdout(int target) : m_original(dup(STDOUT_FILENO)) {
        fflush(stdout);
        dup2(target, STDOUT_FILENO);
    }

    ~redirected_stdout() {
        fflush(stdout);
        dup2(m_original, STDOUT_FILENO);
        close(m_original);
    }

private:
    const int m_original;
};

class null_device {
public:
    null_device() : m_fd(open("/dev/null", O_WRONLY | O_CLOEXEC)) {}
    ~null_device() { close(m_fd); }
    int fd() const { return m_fd; }

private:
    const int m_fd;
};

class temporary_file {
public:
    temporary_file() : m_fd(open("/tmp", O_TMPFILE | O_WRONLY | O_CLOEXEC, 0600)) {}
    ~temporary_file() { close(m_fd); }
    int fd() const { return m_fd; }

private:
    const int m_fd;
};

// Another process reads and forgets what is written.
class drained_pipe {
public:
    drained_pipe() {
        if (pipe2(m_ends, O_CLOEXEC) != 0) {
            abort();
        }
        m_reader = fork();
        if (m_reader == 0) {
            close(m_ends[1]);
            char buffer[65536];
            while (read(m_ends[0], buffer, sizeof(buffer)) > 0) {
            }
            _exit(0);
        }
        close(m_ends[0]);
    }

    ~drained_pipe() {
        close(m_ends[1]);
        waitpid(m_reader, nullptr, 0);
    }

    int fd() const { return m_ends[1]; }

private:
    int m_ends[2];
    pid_t m_reader;
};

template <typename Destination>
void two_printf_and_fflush(benchmark::State& state) {
    Destination destination;
    redirected_stdout redirection(destination.fd());
    const int pid = getpid();
    int frame = 0;
    for (auto _ : state) {
        printf("[%s:%d] %s: ", "bench", pid, "INFO");
        printf("frame %d is drawn by %s\n", frame++, "the child");
        fflush(stdout);
    }
    is_baseline(state);
}

// The same line, flushed as well. Its sink for one thread, which takes no lock.
template <typename Destination>
void printed_by_spdlog(benchmark::State& state) {
    Destination destination;
    redirected_stdout redirection(destination.fd());
    spdlog::logger logger("bench", std::make_shared<spdlog::sinks::stdout_sink_st>());
    logger.set_formatter(std::make_unique<spdlog::pattern_formatter>("[%n:%P] %l: %v"));
    logger.flush_on(spdlog::level::info);
    int frame = 0;
    for (auto _ : state) {
        logger.info("frame {} is drawn by {}", frame++, "the child");
    }
}

void suppressed_by_spdlog(benchmark::State& state) {
    spdlog::logger logger("bench", std::make_shared<spdlog::sinks::stdout_sink_st>());
    int frame = 0;
    for (auto _ : state) {
        logger.debug("frame {} is drawn by {}", frame++, "the child");
    }
}

// Why a file has one of its own is in docs/performance.md.
template <typename Destination>
constexpr const char* limit_of = "1.00";
template <>
constexpr const char* limit_of<temporary_file> = "1.06";

template <typename Destination>
void printed_by_object(benchmark::State& state) {
    talker object;
    Destination destination;
    redirected_stdout redirection(destination.fd());
    int frame = 0;
    for (auto _ : state) {
        object.vask_p(VASK_P_INFO, "frame %d is drawn by %s\n", frame++, "the child");
    }
    has_ratio_limit(state, limit_of<Destination>);
}

template <typename Destination>
void printed_by_static_code(benchmark::State& state) {
    Destination destination;
    redirected_stdout redirection(destination.fd());
    int frame = 0;
    for (auto _ : state) {
        vask_object::vask_p("bench", VASK_P_INFO, "frame %d is drawn by %s\n", frame++,
                            "the child");
    }
    has_ratio_limit(state, "1.00");
}

void call_that_does_nothing(benchmark::State& state) {
    talker object;
    int frame = 0;
    for (auto _ : state) {
        empty_call(&object, VASK_P_DBG, "frame %d is drawn by %s\n", frame++, "the child");
    }
    is_baseline(state);
}

void suppressed_by_object(benchmark::State& state) {
    talker object;
    int frame = 0;
    for (auto _ : state) {
        object.vask_p(VASK_P_DBG, "frame %d is drawn by %s\n", frame++, "the child");
    }
    has_added_time_limit_ns(state, "3");
}

void suppressed_by_static_code(benchmark::State& state) {
    int frame = 0;
    for (auto _ : state) {
        vask_object::vask_p("bench", VASK_P_DBG, "frame %d is drawn by %s\n", frame++, "the child");
    }
    has_added_time_limit_ns(state, "3");
}

BENCHMARK(two_printf_and_fflush<null_device>)
    ->Name("Message to /dev/null/two printf and fflush")
    ->UseRealTime();
BENCHMARK(printed_by_object<null_device>)->Name("Message to /dev/null/vask_p")->UseRealTime();
BENCHMARK(printed_by_static_code<null_device>)
    ->Name("Message to /dev/null/vask_p, static")
    ->UseRealTime();

BENCHMARK(printed_by_spdlog<null_device>)->Name("Message to /dev/null/spdlog")->UseRealTime();

BENCHMARK(two_printf_and_fflush<temporary_file>)
    ->Name("Message to a file/two printf and fflush")
    ->UseRealTime();
BENCHMARK(printed_by_object<temporary_file>)->Name("Message to a file/vask_p")->UseRealTime();
BENCHMARK(printed_by_spdlog<temporary_file>)->Name("Message to a file/spdlog")->UseRealTime();

BENCHMARK(two_printf_and_fflush<drained_pipe>)
    ->Name("Message to a pipe/two printf and fflush")
    ->UseRealTime();
BENCHMARK(printed_by_object<drained_pipe>)->Name("Message to a pipe/vask_p")->UseRealTime();
BENCHMARK(printed_by_spdlog<drained_pipe>)->Name("Message to a pipe/spdlog")->UseRealTime();

BENCHMARK(call_that_does_nothing)
    ->Name("Suppressed message/call of an empty function")
    ->UseRealTime();
BENCHMARK(suppressed_by_object)->Name("Suppressed message/vask_p")->UseRealTime();
BENCHMARK(suppressed_by_static_code)->Name("Suppressed message/vask_p, static")->UseRealTime();
BENCHMARK(suppressed_by_spdlog)->Name("Suppressed message/spdlog")->UseRealTime();

}  // namespace
