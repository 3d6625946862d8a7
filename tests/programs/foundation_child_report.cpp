// Tells on standard output what it was started with.

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <initializer_list>

namespace {

// Tried one by one: reading a directory would open a descriptor more.
void report_descriptors() {
    rlimit limit;
    getrlimit(RLIMIT_NOFILE, &limit);
    const int end = limit.rlim_cur < 65536 ? static_cast<int>(limit.rlim_cur) : 65536;
    printf("descriptors:");
    for (int fd = 0; fd < end; ++fd)
        if (fcntl(fd, F_GETFD) != -1)
            printf(" %d", fd);
    printf("\n");
}

void report_standard_input() {
    char target[PATH_MAX] = "";
    if (readlink("/proc/self/fd/0", target, sizeof target - 1) > 0)
        printf("standard input: %s\n", target);
}

void report_signals() {
    sigset_t blocked;
    sigprocmask(SIG_SETMASK, nullptr, &blocked);
    for (int signal : {SIGTERM, SIGCHLD, SIGUSR1}) {
        struct sigaction action;
        sigaction(signal, nullptr, &action);
        printf("signal %d: %s, %s\n", signal,
               sigismember(&blocked, signal) ? "blocked" : "not blocked",
               action.sa_handler == SIG_DFL ? "default" : "not default");
    }
}

void report_directory() {
    char directory[PATH_MAX] = "";
    if (getcwd(directory, sizeof directory))
        printf("directory: %s\n", directory);
}

}  // namespace

int main(int argc, char** argv) {
    report_descriptors();
    report_standard_input();
    report_signals();
    report_directory();
    for (int i = 0; i < argc; ++i)
        printf("argument: %s\n", argv[i]);
    for (char** variable = environ; *variable; ++variable)
        printf("environment: %s\n", *variable);
    return 0;
}
