// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <X11/Xlib.h>

#include <cstdio>

int main() {
    Display* display = XOpenDisplay(nullptr);
    if (!display) {
        return 1;
    }
    std::printf("%d\n", DisplayWidth(display, DefaultScreen(display)));
    std::fflush(stdout);
    while (std::getchar() != EOF) {
    }
    XCloseDisplay(display);
    return 0;
}
