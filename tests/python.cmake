# SPDX-FileCopyrightText: 2026 The libvask authors
# SPDX-License-Identifier: MIT

# The system's own Python: another one that the path leads to first may be out of reach of whoever runs
# the tests.
find_program(VASK_TEST_PYTHON python3 PATHS /usr/bin NO_DEFAULT_PATH)
if(VASK_TEST_PYTHON AND NOT Python3_EXECUTABLE)
    set(Python3_EXECUTABLE ${VASK_TEST_PYTHON})
endif()
find_package(Python3 REQUIRED COMPONENTS Interpreter)
