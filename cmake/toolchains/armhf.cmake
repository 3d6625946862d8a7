# SPDX-FileCopyrightText: 2026 The libvask authors
# SPDX-License-Identifier: MIT

# Builds for ARM of 32 bits, version 7 with floating point registers, on another machine.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(VASK_TARGET arm-linux-gnueabihf CACHE STRING "What the names of the compilers begin with")
include(${CMAKE_CURRENT_LIST_DIR}/gnu.cmake)
