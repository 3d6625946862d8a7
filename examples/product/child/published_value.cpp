// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "published_value.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vask_object.h>

#include <cerrno>

published_value::~published_value() {
    shm_unlink(m_name.c_str());
}

void published_value::publish(const std::string& text) {
    const int fd = shm_open(m_name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0) {
        vask_object::vask_p("meter_child", VASK_P_ERR, "shm_open: %d\n", errno);
        return;
    }
    const std::size_t size = text.size() + 1;
    if (write(fd, text.c_str(), size) != static_cast<ssize_t>(size) ||
        ftruncate(fd, static_cast<off_t>(size)) != 0) {
        vask_object::vask_p("meter_child", VASK_P_ERR, "%s: %d\n", m_name.c_str(), errno);
    }
    close(fd);
}
