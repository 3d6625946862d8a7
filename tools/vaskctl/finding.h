// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASKCTL_FINDING_H
#define VASKCTL_FINDING_H

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "shared_file.h"

namespace vaskctl {

// Ordered by what a system with several of them is said to be.
enum class verdict { healthy, unknown, held, damaged, abandoned };

const char* name_of(verdict its_verdict);

// A file that an object is made of.
struct finding_file {
    std::string path;
    std::string owner;
    std::string mode;
    std::int64_t size = 0;
    std::optional<int> value;  // of a semaphore
    std::set<int> mapped_by;
};

struct finding_entry {
    int pid;
    std::uint64_t key;
    std::string program;
    std::string state;
};

// What was found out about one object.
struct finding {
    std::string object;  // as repair takes it
    verdict its_verdict = verdict::healthy;
    std::vector<std::string> evidence;
    std::vector<finding_file> files;
    std::optional<std::uint32_t> sequence;
    std::optional<int> count;
    std::vector<finding_entry> entries;
    std::vector<std::pair<std::string, std::string>> fields;

    // The worse verdict of two counts.
    void judge(verdict its, const std::string& why);
};

finding_file describe_file(const shared_file& file);

}  // namespace vaskctl

#endif
