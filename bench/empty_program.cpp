// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Does nothing; what it costs is what it is linked to.

int main() {}
