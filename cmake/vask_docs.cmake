# SPDX-FileCopyrightText: 2026 The libvask authors
# SPDX-License-Identifier: MIT

# The target vask_docs makes the documentation for a browser, beginning with docs/html/index.html in the
# build directory: the manual and the reference of the public headers. A warning is an error.

find_program(VASK_DOXYGEN doxygen)
find_program(VASK_PANDOC pandoc)
find_program(VASK_DOT dot)
find_package(Python3 COMPONENTS Interpreter)
set(VASK_PAGES_DIR ${PROJECT_BINARY_DIR}/docs/html)
configure_file(docs/Doxyfile.in ${PROJECT_BINARY_DIR}/docs/Doxyfile @ONLY)
file(MAKE_DIRECTORY ${VASK_PAGES_DIR}/reference)

if(VASK_DOXYGEN AND VASK_PANDOC AND VASK_DOT AND Python3_FOUND)
    add_custom_target(vask_docs
        COMMAND ${VASK_DOXYGEN} ${PROJECT_BINARY_DIR}/docs/Doxyfile
        COMMAND ${Python3_EXECUTABLE} ${PROJECT_SOURCE_DIR}/docs/pages/make_pages.py
                ${PROJECT_SOURCE_DIR} ${VASK_PAGES_DIR} ${PROJECT_VERSION}
        COMMENT "Making the pages in ${VASK_PAGES_DIR}"
        VERBATIM)
else()
    add_custom_target(vask_docs
        COMMAND ${CMAKE_COMMAND} -E echo
                "doxygen, pandoc, dot or python3 is not installed: scripts/install-deps docs"
        COMMAND ${CMAKE_COMMAND} -E false)
endif()
