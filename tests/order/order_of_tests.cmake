# SPDX-FileCopyrightText: 2026 The libvask authors
# SPDX-License-Identifier: MIT

# Run by CTest for each group of tests: those that take many seconds start first, because one that
# starts last is waited for alone. Which comes first otherwise is different every time.
foreach(test IN LISTS tests)
    string(RANDOM LENGTH 4 ALPHABET 0123456789 chance)
    set_tests_properties(${test} PROPERTIES COST ${seconds}.${chance}1)
endforeach()
