// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "shared_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "foundation/shared_names.h"

namespace vask_fuzz {

namespace {

namespace fs = std::filesystem;

void write_file(const std::string& path, input& input) {
    const std::size_t zeros = input.number<std::uint16_t>() % 8192;
    const std::string bytes = input.take(input.byte());
    std::ofstream(path, std::ios::binary) << bytes << std::string(zeros, '\0');
}

}  // namespace

void put_shared_file(const std::string& name, input& input) {
    const std::string path = shm_directory + name;
    std::error_code any;
    fs::remove_all(path, any);
    switch (input.below(8)) {
        case 0:
            break;
        case 1:
            fs::create_directory(path, any);
            break;
        case 2:
            mkfifo(path.c_str(), 0644);
            break;
        case 3:
            fs::create_symlink(input.flag() ? "nothing" : "/dev/zero", path, any);
            break;
        default:
            write_file(path, input);
            break;
    }
}

void remove_shared_files() {
    for (const fs::directory_entry& entry : fs::directory_iterator(shm_directory)) {
        const std::string name = entry.path().filename();
        for (const char* beginning : {"vask_", "sem.vask_", "sem.fuzz"}) {
            if (name.rfind(beginning, 0) == 0) {
                fs::remove_all(entry.path());
                break;
            }
        }
    }
}

}  // namespace vask_fuzz
