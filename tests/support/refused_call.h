// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_REFUSED_CALL_H
#define VASK_TEST_REFUSED_CALL_H

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>

#include <cstddef>
#include <cstdint>

namespace vask_test {

/** From now on a system call of this process fails with this error, as in a sandbox. It stays so.
 *  False where filters are not allowed. */
inline bool refuse_system_call(long number, int error) {
    sock_filter program[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<std::uint32_t>(number), 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | static_cast<std::uint32_t>(error)),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog filter = {sizeof program / sizeof program[0], program};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

}  // namespace vask_test

#endif
