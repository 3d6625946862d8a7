// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "exit_watch.h"

#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "file_text.h"

namespace vask_test {

namespace {

// Numbers of system calls mean something else to a program of another word size.
#if defined(__x86_64__)
constexpr std::uint32_t own_calls = AUDIT_ARCH_X86_64;
#elif defined(__i386__)
constexpr std::uint32_t own_calls = AUDIT_ARCH_I386;
#elif defined(__aarch64__)
constexpr std::uint32_t own_calls = AUDIT_ARCH_AARCH64;
#elif defined(__arm__)
constexpr std::uint32_t own_calls = AUDIT_ARCH_ARM;
#else
constexpr std::uint32_t own_calls = 0;
#endif

// Headers may be older than the kernel.
#ifndef SECCOMP_FILTER_FLAG_WAIT_KILLABLE_RECV
#define SECCOMP_FILTER_FLAG_WAIT_KILLABLE_RECV (1UL << 5)
#endif

int listen_for_exits() {
    if (own_calls == 0) {
        errno = ENOSYS;
        return -1;
    }
    sock_filter program[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, arch)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, own_calls, 0, 3),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_exit_group, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_USER_NOTIF),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog filter = {sizeof program / sizeof program[0], program};
    // The last one changes nothing here. Kernels that do not know it could not let anybody go.
    unsigned long flags = SECCOMP_FILTER_FLAG_NEW_LISTENER | SECCOMP_FILTER_FLAG_SPEC_ALLOW |
                          SECCOMP_FILTER_FLAG_TSYNC_ESRCH;
    const auto install = [&] {
        return static_cast<int>(syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, flags, &filter));
    };
    // A signal to a process that is being looked at would have it begin to end anew, or, if its
    // handler interrupts system calls, leave its other threads behind.
    flags |= SECCOMP_FILTER_FLAG_WAIT_KILLABLE_RECV;
    int listener = install();
    if (listener < 0 && errno == EINVAL) {
        flags &= ~SECCOMP_FILTER_FLAG_WAIT_KILLABLE_RECV;
        listener = install();
    }
    // Who has no rights may have a filter, if no program that it runs gains any.
    if (listener < 0 && errno == EACCES && prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0) {
        listener = install();
    }
    return listener;
}

/** A message of one number, with a descriptor beside it or without. */
class passed_descriptor {
public:
    passed_descriptor() {
        m_message.msg_iov = &m_part;
        m_message.msg_iovlen = 1;
        m_message.msg_control = m_control;
        m_message.msg_controllen = sizeof m_control;
    }

    void send(int channel, int error, int descriptor) {
        m_error = error;
        if (descriptor < 0) {
            m_message.msg_controllen = 0;
        } else {
            cmsghdr* header = CMSG_FIRSTHDR(&m_message);
            header->cmsg_level = SOL_SOCKET;
            header->cmsg_type = SCM_RIGHTS;
            header->cmsg_len = CMSG_LEN(sizeof descriptor);
            std::memcpy(CMSG_DATA(header), &descriptor, sizeof descriptor);
        }
        while (sendmsg(channel, &m_message, MSG_NOSIGNAL) < 0 && errno == EINTR) {
        }
    }

    /** The error that was sent; the descriptor is -1 with one. */
    int receive(int channel, int* descriptor) {
        *descriptor = -1;
        ssize_t length;
        while ((length = recvmsg(channel, &m_message, MSG_CMSG_CLOEXEC)) < 0 && errno == EINTR) {
        }
        if (length != static_cast<ssize_t>(sizeof m_error)) {
            return ECHILD;
        }
        const cmsghdr* header = CMSG_FIRSTHDR(&m_message);
        if (m_error == 0 && header && header->cmsg_type == SCM_RIGHTS) {
            std::memcpy(descriptor, CMSG_DATA(header), sizeof *descriptor);
        }
        return m_error;
    }

private:
    int m_error = 0;
    iovec m_part = {&m_error, sizeof m_error};
    alignas(cmsghdr) char m_control[CMSG_SPACE(sizeof(int))] = {};
    msghdr m_message = {};
};

pid_t process_of_thread(pid_t thread) {
    const std::string status = file_text("/proc/" + std::to_string(thread) + "/status");
    const std::size_t place = status.find("\nTgid:");
    return place == std::string::npos ? thread : std::atoi(status.c_str() + place + 6);
}

}  // namespace

exit_watch::exit_watch() {
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, m_channel) != 0) {
        m_channel[0] = m_channel[1] = -1;
    }
}

exit_watch::~exit_watch() {
    for (const int descriptor : {m_channel[0], m_channel[1], m_questions}) {
        if (descriptor >= 0) {
            close(descriptor);
        }
    }
}

void exit_watch::begin_in_child() const {
    const int listener = listen_for_exits();
    passed_descriptor().send(m_channel[1], listener < 0 ? errno : 0, listener);
    if (listener >= 0) {
        close(listener);
    }
}

std::string exit_watch::begin_in_parent() {
    close(m_channel[1]);
    m_channel[1] = -1;
    const int error = passed_descriptor().receive(m_channel[0], &m_questions);
    return error == 0 ? "" : std::strerror(error);
}

// The program does not inherit the other end.
bool exit_watch::has_program_begun() const {
    char nothing;
    return recv(m_channel[0], &nothing, 1, MSG_DONTWAIT) == 0;
}

pid_t exit_watch::next() {
    seccomp_notif question = {};
    if (ioctl(m_questions, SECCOMP_IOCTL_NOTIF_RECV, &question) != 0) {
        return 0;
    }
    m_waiting = question.id;
    return process_of_thread(static_cast<pid_t>(question.pid));
}

void exit_watch::let_go() {
    seccomp_notif_resp answer = {};
    answer.id = m_waiting;
    answer.flags = SECCOMP_USER_NOTIF_FLAG_CONTINUE;
    // Nobody waits any more if it was killed meanwhile.
    ioctl(m_questions, SECCOMP_IOCTL_NOTIF_SEND, &answer);
}

void exit_watch::end() {
    close(m_questions);
    m_questions = -1;
}

}  // namespace vask_test
