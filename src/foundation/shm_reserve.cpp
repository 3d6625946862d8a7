// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "foundation/shm_reserve.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>

#include "foundation/withheld_signal.h"

namespace {

// Some kernels undo what an interrupted call has reserved, so a call must be short enough to end
// between two signals.
constexpr off_t piece_size = 64 * 1024;

// A file system cannot do it, or a sandbox forbids it.
bool is_refusal(int error) {
    return error == EOPNOTSUPP || error == ENOSYS || error == EPERM;
}

int reserve_piece(int fd, off_t from, off_t to) {
    while (fallocate(fd, FALLOC_FL_KEEP_SIZE, from, to - from) != 0) {
        if (errno != EINTR) {
            return errno;
        }
    }
    return 0;
}

int write_zero(int fd, off_t offset) {
    ssize_t written;
    do {
        written = pwrite(fd, "", 1, offset);
    } while (written == -1 && errno == EINTR);
    return written == 1 ? 0 : written == 0 ? ENOSPC : errno;
}

// Writes only to holes, which read as zero: what others have stored elsewhere must stay.
int write_to_holes(int fd, off_t from, off_t to) {
    const auto page_size = static_cast<off_t>(sysconf(_SC_PAGESIZE));
    off_t at = from;
    for (;;) {
        const off_t hole = lseek(fd, at, SEEK_HOLE);
        if (hole == -1 && errno != ENXIO) {
            return errno;
        }
        // Without a hole, all from here on lies behind the end.
        at = std::max(at, hole);
        if (at >= to) {
            return 0;
        }
        if (const int error = write_zero(fd, at)) {
            return error;
        }
        at = (at / page_size + 1) * page_size;
    }
}

// Whether the file system cannot have room for so many bytes, the object's own memory counted in.
// Working piece by piece, reserve_shm() would fill the file system up before it failed, which takes
// seconds and starves everybody else.
bool is_beyond_room(int fd, off_t size) {
    struct stat object;
    struct statvfs room;
    if (fstat(fd, &object) != 0 || fstatvfs(fd, &room) != 0 || room.f_blocks == 0) {
        return false;  // no blocks: a file system without a limit
    }
    const off_t missing = size - static_cast<off_t>(object.st_blocks) * 512;
    return missing > 0 && static_cast<fsblkcnt_t>(missing) / room.f_frsize > room.f_bfree;
}

}  // namespace

int set_shm_size(int fd, off_t size) {
    const withheld_signal limit(SIGXFSZ);
    return ftruncate(fd, size) == 0 ? 0 : errno;
}

int reserve_shm(int fd, off_t from, off_t to) {
    if (is_beyond_room(fd, to - from)) {
        return ENOSPC;
    }
    const withheld_signal limit(SIGXFSZ);
    while (from < to) {
        const off_t end = to - from > piece_size ? from + piece_size : to;
        const int error = reserve_piece(fd, from, end);
        if (is_refusal(error)) {
            return write_to_holes(fd, from, to);
        }
        if (error != 0) {
            return error;
        }
        from = end;
    }
    return 0;
}
