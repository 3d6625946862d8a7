// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_SHM_MAPPING_H
#define VASK_SHM_MAPPING_H

#include <memory>

#include "foundation/signal_block.h"
#include "vask_shared_info.h"

// vask_shared_info::map_shm() for a caller that goes on under the semaphore. On success the signals
// are blocked, on failure they are not.
std::unique_ptr<vask_shm_context> map_shm_undisturbed(const char* name, unsigned long size,
                                                      bool create, signal_block& signals);

// Removes a memory object and its semaphore from the system. Processes that map the object see both
// or neither. Waits for the holder of the semaphore, but not for ever, because the holder may be
// dead. Logs what cannot be removed.
void remove_shm_and_sem(const std::string& name);

#endif
