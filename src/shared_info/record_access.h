// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_RECORD_ACCESS_H
#define VASK_RECORD_ACCESS_H

#include <semaphore.h>

#include "foundation/named_sem.h"
#include "foundation/signal_block.h"
#include "vask_object.h"
#include "vask_shared_info.h"

// Both log a line and return null. They are not inlined, so that the way to the record stays short
// enough to be.
sem_t* report_no_context();
sem_t* report_no_semaphore();

// The semaphore of the mapped record; null after a line when there is none to take.
inline sem_t* sem_to_lock(const vask_shm_context* ctx) {
    if (ctx == nullptr) {
        return report_no_context();
    }
    return ctx->get_sem() != nullptr ? ctx->get_sem() : report_no_semaphore();
}

// The shared record under its semaphore: a guard takes it when it is made and gives it back at its
// end. In between nothing may block. Getters and setters go through here, so it is all inline.
class record_access {
public:
    record_access(const record_access&) = delete;
    record_access& operator=(const record_access&) = delete;

    // Whether it has the semaphore. Only then may the record be touched.
    explicit operator bool() const { return m_sem != nullptr; }

    // Whether there is a record, also where its semaphore could not be taken.
    bool is_mapped() const { return m_record != nullptr; }

    vk_shared_info* operator->() const { return m_record; }
    vk_shared_info& operator*() const { return *m_record; }

protected:
    // ctx is null where the record could not be mapped.
    explicit record_access(const vask_shm_context* ctx)
        : m_record(ctx != nullptr ? static_cast<vk_shared_info*>(ctx->get_addr()) : nullptr),
          m_sem(m_record != nullptr ? sem_to_lock(ctx) : nullptr) {}
    ~record_access() = default;

    vk_shared_info* const m_record;

    // Null unless it is held.
    sem_t* m_sem;
};

// Makes no system call while the semaphore is free, so a signal that ends the process may strike
// while it is held.
class record_reader : public record_access {
public:
    explicit record_reader(const vask_shm_context* ctx) : record_access(ctx) {
        if (m_sem != nullptr && !take()) {
            m_sem = nullptr;
        }
    }
    ~record_reader() {
        if (m_sem != nullptr && sem_post(m_sem) != 0) {
            vask_object::vask_sem_post(m_sem);
        }
    }

private:
    // The first try is made here, where it costs no more than the call. What fails is repeated, and
    // reported, by the base object.
    bool take() const {
        return sem_trywait(m_sem) == 0 || take_sem_awake(m_sem) ||
               vask_object::vask_sem_wait(m_sem);
    }
};

// Undisturbed by signals, for two system calls.
class record_changer : public record_access {
public:
    explicit record_changer(const vask_shm_context* ctx) : record_access(ctx) {
        if (m_sem == nullptr) {
            return;
        }
        if (const int error = take_sem_undisturbed(m_sem, m_signals)) {
            report_failed_sem_wait(error);
            m_sem = nullptr;
        }
    }
    ~record_changer() {
        if (m_sem == nullptr) {
            return;
        }
        const bool posted = sem_post(m_sem) == 0;
        m_signals.unblock();
        if (!posted) {
            vask_object::vask_sem_post(m_sem);
        }
    }

private:
    signal_block m_signals;
};

#endif
