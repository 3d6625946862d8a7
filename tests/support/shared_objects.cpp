// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "support/shared_objects.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "support/mapped_file.h"
#include "support/sem_value.h"
#include "support/source_line.h"
#include "vask_object.h"
#include "vask_test/googletest.h"

namespace {

void check(bool ok) {
    if (!ok) {
        std::abort();
    }
}

mode_t mode_of(const std::string& path) {
    struct stat info;
    check(stat(path.c_str(), &info) == 0);
    return info.st_mode & 07777;
}

void remove_all_contexts() {
    std::vector<std::filesystem::path> contexts;
    for (const auto& entry : std::filesystem::directory_iterator("/dev/shm")) {
        if (entry.path().filename().string().find("vask_shm_context_") != std::string::npos) {
            contexts.push_back(entry.path());
        }
    }
    for (const std::filesystem::path& path : contexts) {
        std::filesystem::remove(path);
    }
}

}  // namespace

shared_object::shared_object(const std::string& name) : m_name(name) {}

std::string shared_object::path() const {
    return "/dev/shm/vask_shm_context_shm_" + m_name;
}

std::string shared_object::sem_path() const {
    return "/dev/shm/sem.vask_shm_context_sem_" + m_name;
}

bool shared_object::exists() const {
    return std::filesystem::exists(path());
}

bool shared_object::sem_exists() const {
    return std::filesystem::exists(sem_path());
}

bool shared_object::is_mapped() const {
    return vask_test::is_file_mapped(path());
}

mode_t shared_object::mode() const {
    return mode_of(path());
}

mode_t shared_object::sem_mode() const {
    return mode_of(sem_path());
}

std::vector<unsigned char> shared_object::bytes() const {
    std::ifstream file(path(), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

int shared_object::sem_value() const {
    return vask_test::sem_value(("vask_shm_context_sem_" + m_name).c_str(), missing);
}

void shared_object::create(const std::vector<unsigned char>& content) const {
    std::ofstream file(path(), std::ios::binary);
    file.write(reinterpret_cast<const char*>(content.data()),
               static_cast<std::streamsize>(content.size()));
}

void shared_object::create_sem(unsigned int value) const {
    sem_t* sem =
        sem_open(("vask_shm_context_sem_" + m_name).c_str(), O_CREAT | O_EXCL, 0666, value);
    check(sem != SEM_FAILED);
    sem_close(sem);
}

void shared_object::write(std::size_t offset, const void* content, std::size_t size) const {
    const int fd = open(path().c_str(), O_RDWR | O_CLOEXEC);
    check(pwrite(fd, content, size, static_cast<off_t>(offset)) == static_cast<ssize_t>(size));
    close(fd);
}

void shared_object::remove() const {
    check(unlink(path().c_str()) == 0);
}

void shared_object::remove_sem() const {
    check(unlink(sem_path().c_str()) == 0);
}

std::int32_t shared_object::int_at(std::size_t offset) const {
    const std::vector<unsigned char> content = bytes();
    std::int32_t value;
    check(offset + sizeof(value) <= content.size());
    std::memcpy(&value, &content[offset], sizeof(value));
    return value;
}

void shared_object::set_int_at(std::size_t offset, std::int32_t value) const {
    write(offset, &value, sizeof(value));
}

shared_info_test::shared_info_test() {
    remove_all_contexts();
}

shared_info_test::~shared_info_test() {
    vask_object::m_shared_info->unmap_shared_info(false);
    remove_all_contexts();
}

testing::Matcher<const vask_test::log_line&> shared_info_test::error(const std::string& text) {
    return vask_test::logged("ERR", "vask", from_line_of("vask_shared_info", text));
}

testing::Matcher<const vask_test::log_line&> shared_info_test::bug(const std::string& text) {
    return vask_test::logged("BUG", "vask", from_line_of("vask_shared_info", text));
}

testing::Matcher<const vask_test::log_line&> shared_info_test::sem_error(const std::string& text) {
    return vask_test::logged("ERR", "vask", from_line_of("vask_object_sem", text));
}
