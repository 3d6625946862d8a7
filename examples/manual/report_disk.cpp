// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <vask_object.h>

class disk_report : public vask_object {
public:
    disk_report() { obj_name = "disk_report"; }

    bool print_usage(const char* path) {
        strlist command = {"df", "--output=pcent", path}, variables = {"PATH=/usr/bin:/bin"};
        std::vector<unsigned char> output;
        int status = 0;
        if (!spawn_sync(&command, &variables, &status, &output, nullptr, nullptr) || status != 0) {
            vask_p(VASK_P_ERR, "cannot tell the usage of '%s'\n", path);
            return false;
        }
        const std::string text(output.begin(), output.end());
        const std::vector<std::string> lines = split(text.c_str(), '\n', " ");
        if (lines.empty()) {
            vask_p(VASK_P_ERR, "nothing is known about '%s'\n", path);
            return false;
        }
        vask_p(VASK_P_INFO, "%s: %s\n", path, lines.back().c_str());
        return true;
    }
};

int main() {
    return disk_report().print_usage("/") ? 0 : 1;
}
