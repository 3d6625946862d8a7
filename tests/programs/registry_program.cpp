// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// registry_program NAME KEY: registers itself, says "registered" or "refused", and stays until its
// standard input ends.

#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include "vask_object.h"

namespace {

class registrant : public vask_object {
public:
    explicit registrant(const char* name) { obj_name = name; }
};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        return 2;
    }
    registrant object(argv[1]);
    const bool registered = object.store_pid_to_shm(strtoul(argv[2], nullptr, 0));
    puts(registered ? "registered" : "refused");
    fflush(stdout);
    char c;
    while (read(STDIN_FILENO, &c, 1) > 0) {
    }
    return registered ? 0 : 1;
}
