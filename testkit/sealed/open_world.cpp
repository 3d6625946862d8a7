// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "open_world.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "private_world.h"
#include "vask_test/world.h"

namespace fs = std::filesystem;

namespace vask_test {

namespace {

const fs::path shm = "/dev/shm";

std::string failure(const std::string& what) {
    return what + ": " + std::strerror(errno);
}

bool is_of_library(const std::string& name) {
    return name.rfind("vask_", 0) == 0 || name.rfind("sem.vask_", 0) == 0;
}

bool is_mine(const fs::path& path) {
    struct stat info;
    return lstat(path.c_str(), &info) == 0 && info.st_uid == geteuid();
}

}  // namespace

open_world::~open_world() {
    std::error_code ignored;
    if (!m_directory.empty()) {
        fs::remove_all(m_directory, ignored);
    }
    if (m_has_begun) {
        for (const std::string& name : new_objects()) {
            fs::remove_all(shm / name, ignored);
        }
    }
    if (m_turn >= 0) {
        put_back();
        close(m_turn);
    }
}

std::string open_world::enter() {
    char name[] = "/tmp/vask_test_XXXXXX";
    if (!mkdtemp(name)) {
        return failure("no temporary directory");
    }
    m_directory = name;
    if (!is_in_open_world()) {
        // Everybody may open the directory, which no file of ours in it could promise.
        m_turn = open(shm.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        while (m_turn >= 0 && flock(m_turn, LOCK_EX) != 0) {
            if (errno != EINTR) {
                close(m_turn);
                m_turn = -1;
            }
        }
        if (m_turn < 0) {
            return failure("no lock on /dev/shm");
        }
        const std::string error = put_aside();
        if (!error.empty()) {
            return error;
        }
        setenv(open_world_variable, "1", 1);
    }
    m_old_objects = shared_objects();
    m_has_begun = true;
    return "";
}

std::vector<std::string> open_world::new_objects() const {
    std::vector<std::string> result;
    for (const std::string& name : shared_objects()) {
        if (is_mine(shm / name) &&
            !std::binary_search(m_old_objects.begin(), m_old_objects.end(), name)) {
            result.push_back(name);
        }
    }
    return result;
}

std::string open_world::put_aside() {
    std::error_code error;
    m_aside = shm / (".vask_test_" + std::to_string(geteuid()));
    const bool is_first = fs::create_directory(m_aside, error);
    if (error) {
        return m_aside + ": " + error.message();
    }
    for (const std::string& name : shared_objects()) {
        if (!is_of_library(name)) {
            continue;
        }
        // After a run that was killed, its test has left these, and what was there is still aside.
        // In a directory with the sticky bit only its owner can move or remove a file.
        if (is_first) {
            fs::rename(shm / name, fs::path(m_aside) / name, error);
        } else {
            fs::remove(shm / name, error);
        }
        if (error) {
            return "/dev/shm/" + name + " is in the way";
        }
    }
    return "";
}

void open_world::put_back() const {
    std::error_code ignored;
    for (const auto& entry : fs::directory_iterator(m_aside, ignored)) {
        fs::rename(entry.path(), shm / entry.path().filename(), ignored);
    }
    fs::remove(m_aside, ignored);
}

}  // namespace vask_test
