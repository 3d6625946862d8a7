# SPDX-FileCopyrightText: 2026 The libvask authors
# SPDX-License-Identifier: MIT

# Who compiles the headers by themselves, as C++ and as C. A package is built where there is no clang.
find_program(VASK_TEST_GCC g++ REQUIRED)
find_program(VASK_TEST_CC gcc REQUIRED)
find_program(VASK_TEST_CLANG clang++)
find_program(VASK_TEST_CLANG_C clang)
set(VASK_TEST_CXX_COMPILERS ${VASK_TEST_GCC})
set(VASK_TEST_C_COMPILERS ${VASK_TEST_CC})
if(VASK_TEST_CLANG AND VASK_TEST_CLANG_C)
    list(APPEND VASK_TEST_CXX_COMPILERS ${VASK_TEST_CLANG})
    list(APPEND VASK_TEST_C_COMPILERS ${VASK_TEST_CLANG_C})
else()
    message(STATUS "No tests of the headers with clang: there is none")
endif()
