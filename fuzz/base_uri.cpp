// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <algorithm>
#include <string>

#include "target.h"
#include "vask_app_bridge.h"

using vask_fuzz::input;
using vask_fuzz::require;
using vask_fuzz::require_equal;

namespace {

bool ends_with(const std::string& text, const std::string& end) {
    return text.size() >= end.size() &&
           text.compare(text.size() - end.size(), end.size(), end) == 0;
}

void set_base(vask_app_bridge& bridge, std::string uri) {
    const std::string before = bridge.get_base_uri();
    vask_error error;
    const bool taken = bridge.set_base_uri(uri, &error);
    require(taken == (uri.find("://") != std::string::npos), "a base has a scheme");
    require(error.get_code() == (taken ? VASK_ERR_NONE : VASK_ERR_INVALID_URI),
            "a refusal has its code");
    require_equal(bridge.get_base_uri(), taken ? uri : before, "only a base is kept");
}

void convert(vask_app_bridge& bridge, const std::string& name) {
    const std::string base = bridge.get_base_uri();
    vask_error error;
    const std::string uri = bridge.convert_to_uri(name, &error);
    if (base.empty()) {
        require_equal(uri, "", "without a base there is no URI");
        require(error.get_code() == VASK_ERR_INVALID_URI, "a missing base has its code");
        return;
    }
    require(error.get_code() == VASK_ERR_NONE, "a conversion has no error");
    require(ends_with(uri, name), "the URI ends with the name");
    const std::string kept = uri.substr(0, uri.size() - name.size());
    require_equal(kept, base.substr(0, kept.size()), "the URI begins with the base");
    const std::size_t host = base.find("://") + 3;
    const bool is_absolute = !name.empty() && name[0] == '/';
    const std::size_t path = is_absolute ? base.find('/', host) : std::string::npos;
    require(kept.size() == std::min(path, base.size()), "only an absolute name replaces the path");
}

}  // namespace

void set_up_target() {
    vask_fuzz::output_of_library::discard();
}

// Any number of bases and of names to be converted.
void run_target(input& input) {
    vask_app_bridge bridge("bridge", true);
    while (input.has_more()) {
        const bool is_base = input.flag();
        const std::size_t size = input.byte();
        const std::string text = input.take(size);
        if (is_base) {
            set_base(bridge, text);
        } else {
            convert(bridge, text);
        }
    }
}
