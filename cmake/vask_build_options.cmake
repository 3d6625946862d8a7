# SPDX-FileCopyrightText: 2026 The libvask authors
# SPDX-License-Identifier: MIT

# Compiler and linker flags that every target of this project is built with.

add_compile_options(-Wall -Wextra)
# Inode numbers, sizes and times need 64 bits, also where words have 32: stat() would fail with
# EOVERFLOW, and the clock overflows in 2038. C libraries older than glibc 2.34 have no such times.
add_compile_definitions(_FILE_OFFSET_BITS=64 _TIME_BITS=64)
if(VASK_WARNINGS_AS_ERRORS)
    add_compile_options(-Werror)
endif()

if(VASK_SANITIZE)
    add_compile_options(-fsanitize=${VASK_SANITIZE} -fno-sanitize-recover=all
                        -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${VASK_SANITIZE})
    if(CMAKE_CXX_COMPILER_ID MATCHES Clang)
        # What dbus-glib's generated code calls has the right arguments under another type.
        add_compile_options(-fno-sanitize=function)
    endif()
endif()
