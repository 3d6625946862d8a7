# SPDX-FileCopyrightText: 2026 The libvask authors
# SPDX-License-Identifier: MIT

# Builds for ARM of 64 bits on another machine.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(VASK_TARGET aarch64-linux-gnu CACHE STRING "What the names of the compilers begin with")
include(${CMAKE_CURRENT_LIST_DIR}/gnu.cmake)
