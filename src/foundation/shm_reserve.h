// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_SHM_RESERVE_H
#define VASK_SHM_RESERVE_H

#include <sys/types.h>

// Both return 0 or an error number, print nothing, and turn the signal of RLIMIT_FSIZE into EFBIG.

// ftruncate(). What it adds has no memory yet: on a full file system a store to it is fatal.
int set_shm_size(int fd, off_t size);

// Finds memory for the bytes [from, to) of a shared-memory object, so that a store to them is not
// fatal however full the file system gets. Their content stays. Bytes behind the object's end get
// memory as well, and set_shm_size() may add them afterwards; where the file system or a sandbox
// refuses fallocate() the object may be longer than it was, also after a failure.
//
// It works piece by piece and keeps each piece, so that repeated signals do not keep it from its
// end. It refuses at once what is larger than the room that is left. After a failure the object
// keeps what was found, until it is made shorter or removed.
int reserve_shm(int fd, off_t from, off_t to);

#endif
