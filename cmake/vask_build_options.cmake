# SPDX-FileCopyrightText: 2026 The libvask authors
# SPDX-License-Identifier: MIT

# Compiler and linker flags that every target of this project is built with.

add_compile_options(-Wall -Wextra)
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(arm|aarch64)")
    # gcc tells of every template of the standard library that old compilers called in another way,
    # and warns of a shift that it makes itself: it converts a pointer to a member to that of a base
    # that is not the first by one, where pointers to members are those of ARM.
    add_compile_options(-Wno-psabi $<$<COMPILE_LANGUAGE:CXX>:-Wno-shift-negative-value>)
endif()
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

# An installed program finds the library of its own installation, wherever that lies, unless whoever
# builds has decided on run paths.
function(vask_find_library_when_installed program)
    if(NOT DEFINED CMAKE_INSTALL_RPATH)
        file(RELATIVE_PATH to_library ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
        set_target_properties(${program} PROPERTIES INSTALL_RPATH "\$ORIGIN/${to_library}")
    endif()
endfunction()
