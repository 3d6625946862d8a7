// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// A child that adds nothing of its own.

#include <vask_child.h>

int main(int argc, char** argv) {
    vask_child child("child_plain", argc, argv);
    return child.run();
}
