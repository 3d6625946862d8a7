# SPDX-FileCopyrightText: 2026 The libvask authors
# SPDX-License-Identifier: MIT

# Refuses here what would only fail for users of the library, later and in other words.
# VASK_BUS_PATH_PREFIX is the bus prefix as the beginning of an object path.

if(DEFINED BUILD_SHARED_LIBS AND NOT BUILD_SHARED_LIBS)
    message(FATAL_ERROR
        "BUILD_SHARED_LIBS is off, but libvask is a shared library only: a program and its plug-in that "
        "had a copy each would register the same type twice and have two states of one process. A "
        "product whose own libraries are static turns it on for libvask alone: "
        "set(BUILD_SHARED_LIBS ON) before its add_subdirectory() or FetchContent_MakeAvailable().")
endif()

# It begins the name of an interface and of an object path, in which D-Bus allows less than in other
# names. The longest bus name is PREFIX.vask.Child_2147483647, and a bus takes 255 characters.
string(LENGTH "${VASK_BUS_PREFIX}" bus_prefix_length)
if(NOT VASK_BUS_PREFIX MATCHES "^[A-Za-z_][A-Za-z0-9_]*(\\.[A-Za-z_][A-Za-z0-9_]*)*$")
    message(FATAL_ERROR
        "VASK_BUS_PREFIX is '${VASK_BUS_PREFIX}', but D-Bus wants words of A-Z, a-z, 0-9 and _ that do "
        "not begin with a digit, with one dot between them, as in com.example")
elseif(bus_prefix_length GREATER 233)
    message(FATAL_ERROR
        "VASK_BUS_PREFIX has ${bus_prefix_length} characters, but D-Bus leaves room for 233")
endif()
string(REPLACE "." "/" VASK_BUS_PATH_PREFIX "/${VASK_BUS_PREFIX}")
