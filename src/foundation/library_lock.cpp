// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "foundation/library_lock.h"

#include <sys/stat.h>

#include "foundation/named_sem.h"

library_lock_watch::library_lock_watch(sem_t* held)
    : m_held(held), m_path(named_sem_path(library_lock_name)) {
    struct stat file;
    // The file that was looked at first is the handle's if the name still leads to the handle
    // afterwards: a name that was removed never leads back.
    if (stat(m_path.c_str(), &file) == 0 && is_named_sem(library_lock_name, m_held)) {
        m_device = file.st_dev;
        m_number = file.st_ino;
    }
}

bool library_lock_watch::is_still_held() const {
    struct stat file;
    if (stat(m_path.c_str(), &file) == 0 && file.st_ino == m_number && file.st_dev == m_device) {
        return true;
    }
    return is_named_sem(library_lock_name, m_held);
}
