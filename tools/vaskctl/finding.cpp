// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "finding.h"

#include <algorithm>

namespace vaskctl {

const char* name_of(verdict its_verdict) {
    switch (its_verdict) {
        case verdict::healthy:
            return "healthy";
        case verdict::unknown:
            return "unknown";
        case verdict::held:
            return "held";
        case verdict::damaged:
            return "damaged";
        case verdict::abandoned:
            return "abandoned";
    }
    return "";
}

void finding::judge(verdict its, const std::string& why) {
    its_verdict = std::max(its_verdict, its);
    evidence.push_back(why);
}

finding_file describe_file(const shared_file& file) {
    finding_file described;
    described.path = file.path();
    described.owner = file.owner();
    described.mode = file.mode();
    described.size = file.facts().st_size;
    return described;
}

}  // namespace vaskctl
