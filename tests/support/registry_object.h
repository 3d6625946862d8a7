// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_REGISTRY_OBJECT_H
#define VASK_TEST_REGISTRY_OBJECT_H

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "support/mapped_file.h"

/** More entries than fit into the page that is mapped first. */
inline size_t entries_beyond_first_page() {
    return static_cast<size_t>(sysconf(_SC_PAGESIZE)) / 16 + 44;
}

/** The bytes of a registry, written and read without the library. Made when there is none. */
class registry_object {
public:
    static constexpr size_t header_size = 8;
    static constexpr size_t entry_size = 16;
    static constexpr size_t size_when_new = 24;

    explicit registry_object(const std::string& name)
        : m_path("/dev/shm/vask_proc_pid_" + name),
          m_fd(open(m_path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644)) {
        if (m_fd < 0) {
            std::abort();
        }
    }
    ~registry_object() { close(m_fd); }
    registry_object(const registry_object&) = delete;
    registry_object& operator=(const registry_object&) = delete;

    const std::string& path() const { return m_path; }
    int fd() const { return m_fd; }

    size_t size() const { return static_cast<size_t>(info().st_size); }
    size_t memory() const { return static_cast<size_t>(info().st_blocks) * 512; }
    mode_t mode() const { return info().st_mode & 07777; }
    /** By this process. */
    bool is_mapped() const { return vask_test::is_file_mapped(m_path); }
    void resize(size_t size) { check(ftruncate(m_fd, static_cast<off_t>(size)) == 0); }

    std::vector<unsigned char> bytes() const {
        std::vector<unsigned char> result(size());
        check(pread(m_fd, result.data(), result.size(), 0) == static_cast<ssize_t>(result.size()));
        return result;
    }

    std::uint32_t sequence() const { return read<std::uint32_t>(0); }
    std::int32_t count() const { return read<std::int32_t>(4); }
    std::int32_t pid(size_t i) const { return read<std::int32_t>(offset(i)); }
    std::uint32_t reserved(size_t i) const { return read<std::uint32_t>(offset(i) + 4); }
    std::uint64_t key(size_t i) const { return read<std::uint64_t>(offset(i) + 8); }

    void set_sequence(std::uint32_t sequence) { write(0, sequence); }
    void set_count(std::int32_t count) { write(4, count); }
    void set_reserved(size_t i, std::uint32_t value) { write(offset(i) + 4, value); }
    void set_entry(size_t i, std::int32_t pid, std::uint64_t key) {
        write(offset(i), pid);
        write(offset(i) + 8, key);
    }

    /** Adds an entry and sizes the object as a registration would. */
    void append(std::int32_t pid, std::uint64_t key) {
        if (size() < size_when_new) {
            resize(size_when_new);
        }
        const auto before = static_cast<size_t>(count());
        resize(std::max(size(), size_when_new + before * entry_size));
        set_entry(before, pid, key);
        set_count(static_cast<std::int32_t>(before) + 1);
    }

    /** Keys from 1 on, all of the same process. */
    void fill(size_t entries, std::int32_t pid) {
        resize(std::max(size_when_new, header_size + entries * entry_size));
        for (size_t i = 0; i < entries; ++i) {
            set_entry(i, pid, i + 1);
        }
        set_count(static_cast<std::int32_t>(entries));
    }

private:
    static size_t offset(size_t i) { return header_size + i * entry_size; }

    static void check(bool ok) {
        if (!ok) {
            std::abort();
        }
    }

    struct stat info() const {
        struct stat result;
        check(fstat(m_fd, &result) == 0);
        return result;
    }

    template <typename Value>
    Value read(size_t at) const {
        Value value;
        check(pread(m_fd, &value, sizeof(value), static_cast<off_t>(at)) == sizeof(value));
        return value;
    }

    template <typename Value>
    void write(size_t at, Value value) {
        check(pwrite(m_fd, &value, sizeof(value), static_cast<off_t>(at)) == sizeof(value));
    }

    const std::string m_path;
    const int m_fd;
};

#endif
