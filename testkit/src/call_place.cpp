// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "vask_test/call_place.h"

#include <dlfcn.h>
#include <execinfo.h>

#include "demangled.h"

namespace vask_test {

namespace {

bool begins_with(const std::string& text, const char* beginning) {
    return text.rfind(beginning, 0) == 0;
}

bool is_on_the_way_to_the_ledger(const std::string& function) {
    // A sanitizer may stand in front of backtrace(), under either name.
    return function == "backtrace" || function == "__interceptor_backtrace" ||
           begins_with(function, "vask_test::call_place::") ||
           begins_with(function, "vask_test::fake_") || begins_with(function, "vask_np_base::NPN_");
}

/** Empty for a function without an exported name. */
std::string name_of(const void* function) {
    Dl_info info;
    return dladdr(function, &info) != 0 && info.dli_sname ? demangled(info.dli_sname) : "";
}

}  // namespace

call_place call_place::here() {
    call_place place;
    place.m_depth = backtrace(place.m_frames.data(), most_frames);
    return place;
}

std::vector<std::string> call_place::functions() const {
    std::vector<std::string> names;
    for (int i = 0; i < m_depth; ++i) {
        const void* function = m_frames[static_cast<std::size_t>(i)];
        const std::string name = m_names ? m_names->at(function) : name_of(function);
        if (name.empty()) {
            continue;
        }
        const bool is_ours = is_on_the_way_to_the_ledger(name);
        const bool has_begun = !names.empty();
        if (name.find("testing::") != std::string::npos || (has_begun && is_ours)) {
            break;
        }
        if (!is_ours) {
            names.push_back(name);
        }
    }
    return names;
}

void call_place::keep_names(const std::shared_ptr<name_map>& names) {
    if (m_names) {
        return;
    }
    for (int i = 0; i < m_depth; ++i) {
        const void* function = m_frames[static_cast<std::size_t>(i)];
        if (names->count(function) == 0) {
            (*names)[function] = name_of(function);
        }
    }
    m_names = names;
}

std::string call_place::function() const {
    const std::vector<std::string> names = functions();
    return names.empty() ? "" : names.front().substr(0, names.front().find('('));
}

std::string call_place::text() const {
    std::string text;
    for (const std::string& name : functions()) {
        text += (text.empty() ? "" : " < ") + name;
    }
    return text;
}

}  // namespace vask_test
