// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "open_world.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iterator>

#include "vask_test/world.h"

namespace fs = std::filesystem;

namespace vask_test {

namespace {

const fs::path shm = "/dev/shm";

std::string failure(const std::string& what) {
    return what + ": " + std::strerror(errno);
}

bool is_there(const fs::path& path) {
    struct stat info;
    return lstat(path.c_str(), &info) == 0;
}

// Everybody can make directories in /dev/shm, under any name.
bool make_own_directory(const fs::path& path) {
    struct stat info;
    return (mkdir(path.c_str(), 0700) == 0 || errno == EEXIST) && lstat(path.c_str(), &info) == 0 &&
           S_ISDIR(info.st_mode) && info.st_uid == geteuid();
}

/** All processes that were not started here. */
std::vector<process_entry> list_strangers() {
    std::vector<process_entry> result = list_processes();
    for (const process_entry& own : list_descendants(getpid())) {
        result.erase(std::remove_if(result.begin(), result.end(),
                                    [&](const process_entry& each) { return each.pid == own.pid; }),
                     result.end());
    }
    return result;
}

std::vector<std::string> names_of_library() {
    std::vector<std::string> names;
    std::error_code ignored;
    for (const auto& entry : fs::directory_iterator(shm, ignored)) {
        const std::string name = entry.path().filename();
        if (name.rfind("vask_", 0) == 0 || name.rfind("sem.vask_", 0) == 0) {
            names.push_back(name);
        }
    }
    return names;
}

}  // namespace

open_world::~open_world() {
    std::error_code ignored;
    if (!m_directory.empty()) {
        fs::remove_all(m_directory, ignored);
    }
    if (m_has_begun) {
        for (const shared_thing& thing : new_things()) {
            remove(thing);
        }
    }
    if (!m_aside.empty()) {
        put_back();
    }
    if (m_turn >= 0) {
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
    m_old_things = list_shared_things(owners::this_user);
    m_has_begun = true;
    return "";
}

std::vector<shared_thing> open_world::new_things() const {
    const std::vector<shared_thing> things = list_shared_things(owners::this_user);
    std::vector<shared_thing> result;
    std::set_difference(things.begin(), things.end(), m_old_things.begin(), m_old_things.end(),
                        std::back_inserter(result));
    if (!result.empty()) {
        const std::vector<process_entry> strangers = list_strangers();
        const auto is_of_a_stranger = [&](const shared_thing& thing) {
            return std::any_of(strangers.begin(), strangers.end(),
                               [&](const process_entry& each) { return is_used_by(each, thing); });
        };
        result.erase(std::remove_if(result.begin(), result.end(), is_of_a_stranger), result.end());
    }
    return result;
}

// What lies in the second directory was not put aside yet, or is on its way back. Whoever dies over
// that has run no test that could have left anything.
std::string open_world::put_aside() {
    const fs::path aside = shm / (".vask_test_" + std::to_string(geteuid()));
    const fs::path moving = aside.string() + ".moving";
    const bool is_after_a_kill = is_there(aside);
    const fs::path& place = is_after_a_kill ? aside : moving;
    if (!make_own_directory(place)) {
        return place.string() + " is in the way";
    }
    m_aside = aside;
    m_moving = moving;
    // Of other users as well: the library would open them.
    for (const std::string& name : names_of_library()) {
        std::error_code error;
        // After a run that was killed, its test has left these, and what was there is still aside.
        // In a directory with the sticky bit only its owner can move or remove a file.
        if (is_after_a_kill) {
            fs::remove(shm / name, error);
        } else {
            fs::rename(shm / name, moving / name, error);
        }
        if (error) {
            return "/dev/shm/" + name + " is in the way";
        }
    }
    if (!is_after_a_kill && rename(moving.c_str(), aside.c_str()) != 0) {
        return failure(aside);
    }
    return "";
}

void open_world::put_back() const {
    std::error_code ignored;
    fs::rename(m_aside, m_moving, ignored);
    for (const auto& entry : fs::directory_iterator(m_moving, ignored)) {
        fs::rename(entry.path(), shm / entry.path().filename(), ignored);
    }
    fs::remove(m_moving, ignored);
}

}  // namespace vask_test
