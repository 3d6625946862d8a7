// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <string.h>
#include <vask_object.h>
#include <vask_version.h>

static_assert(VASK_VERSION_AT_LEAST(2, 0, 0) && !VASK_VERSION_AT_LEAST(3, 0, 0),
              "version of the headers");

namespace {

class consumer : public virtual vask_object {
public:
    consumer() { obj_name = "consumer"; }
    ~consumer() override { vask_p(VASK_P_INFO, "%s\n", "goodbye"); }
};

bool is_built_and_runs_with(const char* version, const char* bus_prefix) {
    return strcmp(VASK_VERSION, version) == 0 && strcmp(vask_version_string(), version) == 0 &&
           vask_version_number() == VASK_VERSION_NUMBER &&
           strcmp(VASK_BUS_PREFIX, bus_prefix) == 0 && strcmp(vask_bus_prefix(), bus_prefix) == 0;
}

}  // namespace

int main() {
    const consumer object;
    object.vask_p(VASK_P_NOTICE, "%s\n", vask_object::vask_sprintf("hello %d", 2).c_str());
    return is_built_and_runs_with(EXPECTED_VERSION, EXPECTED_BUS_PREFIX) ? 0 : 1;
}
