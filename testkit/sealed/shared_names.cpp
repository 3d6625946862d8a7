// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "shared_names.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <tuple>

#include "file_text.h"

namespace fs = std::filesystem;

namespace vask_test {

namespace {

bool is_one_of(owners whose, long user) {
    return whose == owners::everybody || user == static_cast<long>(geteuid());
}

void list_dev_shm(owners whose, std::vector<shared_thing>* list) {
    DIR* directory = opendir("/dev/shm");
    if (!directory) {
        return;
    }
    while (const dirent* entry = readdir(directory)) {
        const std::string name = entry->d_name;
        struct stat info;
        if (name == "." || name == ".." ||
            fstatat(dirfd(directory), entry->d_name, &info, AT_SYMLINK_NOFOLLOW) != 0 ||
            !is_one_of(whose, info.st_uid)) {
            continue;
        }
        const bool is_semaphore = name.rfind("sem.", 0) == 0;
        list->push_back({is_semaphore ? leftover_kind::semaphore : leftover_kind::shared_object,
                         "/dev/shm/" + name, -1});
    }
    closedir(directory);
}

/** A table of /proc whose first line names the columns. */
void list_system_v(owners whose, const char* table, const char* id_column, leftover_kind kind,
                   const std::string& name, std::vector<shared_thing>* list) {
    std::ifstream lines(table);
    std::string line, word;
    std::vector<std::string> columns;
    std::getline(lines, line);
    for (std::istringstream words(line); words >> word;) {
        columns.push_back(word);
    }
    while (std::getline(lines, line)) {
        std::map<std::string, long> row;
        std::istringstream words(line);
        for (const std::string& column : columns) {
            words >> row[column];
        }
        if (is_one_of(whose, row["uid"])) {
            const int id = static_cast<int>(row[id_column]);
            list->push_back({kind, name + " " + std::to_string(id), id});
        }
    }
}

}  // namespace

bool operator<(const shared_thing& a, const shared_thing& b) {
    return std::tie(a.kind, a.name) < std::tie(b.kind, b.name);
}

std::vector<shared_thing> list_shared_things(owners whose) {
    std::vector<shared_thing> list;
    list_dev_shm(whose, &list);
    list_system_v(whose, "/proc/sysvipc/shm", "shmid", leftover_kind::shared_object,
                  "System V segment", &list);
    list_system_v(whose, "/proc/sysvipc/sem", "semid", leftover_kind::semaphore,
                  "System V semaphores", &list);
    std::sort(list.begin(), list.end());
    return list;
}

bool is_used_by(const process_entry& process, const shared_thing& thing) {
    if (thing.id >= 0) {
        shmid_ds segment;
        return thing.kind == leftover_kind::shared_object &&
               shmctl(thing.id, IPC_STAT, &segment) == 0 && segment.shm_nattch > 0 &&
               (segment.shm_cpid == process.pid || segment.shm_lpid == process.pid);
    }
    const std::string path = "/proc/" + std::to_string(process.pid);
    if (file_text(path + "/maps").find(thing.name + "\n") != std::string::npos) {
        return true;
    }
    std::error_code error;
    for (fs::directory_iterator next(path + "/fd", error), end; !error && next != end;
         next.increment(error)) {
        std::error_code ignored;
        if (fs::read_symlink(next->path(), ignored) == thing.name) {
            return true;
        }
    }
    return false;
}

void remove(const shared_thing& thing) {
    if (thing.id < 0) {
        std::error_code ignored;
        fs::remove_all(thing.name, ignored);
    } else if (thing.kind == leftover_kind::shared_object) {
        shmctl(thing.id, IPC_RMID, nullptr);
    } else {
        semctl(thing.id, 0, IPC_RMID);
    }
}

}  // namespace vask_test
