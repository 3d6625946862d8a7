// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "held_semaphore.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/file.h>

#include "complaint.h"

namespace vaskctl {

held_semaphore::held_semaphore(const std::string& name, const process_table& processes)
    : m_examined(name) {
    const std::string damage = m_examined.file().exists() ? m_examined.damage() : "it is gone";
    if (!damage.empty()) {
        throw complaint(status_failed, damage);
    }
    m_file_lock = unique_fd(
        open(m_examined.file().path().c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
    if (!m_file_lock || flock(m_file_lock.get(), LOCK_EX | LOCK_NB) != 0) {
        throw complaint(status_failed, "another process is repairing it, or may not be disturbed");
    }
    open_handle(name);
    if (sem_trywait(m_handle) == 0) {
        return;
    }
    const sem_evidence evidence = examine(m_examined, processes);
    if (evidence.its_verdict == verdict::abandoned && is_current()) {
        m_is_adopted = true;
        return;
    }
    const bool is_free_again =
        evidence.its_verdict == verdict::healthy && is_current() && sem_trywait(m_handle) == 0;
    if (!is_free_again) {
        sem_close(m_handle);
        throw complaint(status_failed, evidence.text.empty() ? "it is in use" : evidence.text);
    }
}

void held_semaphore::open_handle(const std::string& name) {
    sem_t* handle = sem_open(name.c_str(), 0);
    if (handle == SEM_FAILED) {
        throw complaint(status_failed, std::string("it cannot be opened: ") + strerror(errno));
    }
    if (!is_current()) {
        sem_close(handle);
        throw complaint(status_failed, "it was replaced meanwhile");
    }
    m_handle = handle;
}

held_semaphore::~held_semaphore() {
    sem_post(m_handle);
    sem_close(m_handle);
}

}  // namespace vaskctl
