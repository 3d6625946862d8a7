// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Tells on standard output what it was started with.

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstring>
#include <initializer_list>

namespace {

// Tried one by one: reading a directory would open a descriptor more.
void report_descriptors() {
    rlimit limit;
    getrlimit(RLIMIT_NOFILE, &limit);
    const int end = limit.rlim_cur < 65536 ? static_cast<int>(limit.rlim_cur) : 65536;
    printf("descriptors:");
    for (int fd = 0; fd < end; ++fd) {
        if (fcntl(fd, F_GETFD) != -1) {
            printf(" %d", fd);
        }
    }
    printf("\n");
}

void report_standard_input() {
    char target[PATH_MAX] = "";
    if (readlink("/proc/self/fd/0", target, sizeof target - 1) > 0) {
        printf("standard input: %s\n", target);
    }
}

void report_signals() {
    sigset_t blocked;
    sigprocmask(SIG_SETMASK, nullptr, &blocked);
    for (int signal : {SIGTERM, SIGCHLD, SIGPIPE, SIGUSR1}) {
        struct sigaction action;
        sigaction(signal, nullptr, &action);
        printf("signal %d: %s, %s\n", signal,
               sigismember(&blocked, signal) ? "blocked" : "not blocked",
               action.sa_handler == SIG_DFL ? "default" : "not default");
    }
}

// The lines of a file of the kernel about this process, under a heading of their own.
void report_lines(const char* heading, const char* path, const char* beginning) {
    FILE* file = fopen(path, "r");
    char line[256];
    while (file && fgets(line, sizeof line, file)) {
        if (strncmp(line, beginning, strlen(beginning)) == 0) {
            printf("%s: %s", heading, line);
        }
    }
    if (file) {
        fclose(file);
    }
}

// Among the processes of the machine.
void report_place() {
    FILE* file = fopen("/proc/self/stat", "r");
    int parent, group, session, terminal, terminal_group;
    if (file && fscanf(file, "%*d (%*[^)]) %*c %d %d %d %d %d", &parent, &group, &session,
                       &terminal, &terminal_group) == 5) {
        printf("place: parent %d, group %d, session %d, terminal %d, its group %d\n", parent, group,
               session, terminal, terminal_group);
    }
    if (file) {
        fclose(file);
    }
}

void report_inheritance() {
    for (const char* beginning : {"SigPnd:", "SigBlk:", "SigIgn:", "SigCgt:", "ShdPnd:",
                                  "Cpus_allowed:", "Cap", "Groups:", "NoNewPrivs:"}) {
        report_lines("status", "/proc/self/status", beginning);
    }
    report_lines("out-of-memory score", "/proc/self/oom_score_adj", "");
    printf("umask: %o\n", static_cast<unsigned>(umask(0)));
    printf("nice value: %d\n", getpriority(PRIO_PROCESS, 0));
    report_place();
    for (int fd = 0; fd <= 2; ++fd) {
        printf("mode of descriptor %d: %o\n", fd, static_cast<unsigned>(fcntl(fd, F_GETFL)));
    }
}

void report_directory() {
    char directory[PATH_MAX] = "";
    if (getcwd(directory, sizeof directory)) {
        printf("directory: %s\n", directory);
    }
}

}  // namespace

int main(int argc, char** argv) {
    report_descriptors();
    report_standard_input();
    report_signals();
    report_inheritance();
    report_directory();
    for (int i = 0; i < argc; ++i) {
        printf("argument: %s\n", argv[i]);
    }
    for (char** variable = environ; *variable; ++variable) {
        printf("environment: %s\n", *variable);
    }
    return 0;
}
