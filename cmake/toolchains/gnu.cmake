# SPDX-FileCopyrightText: 2026 The libvask authors
# SPDX-License-Identifier: MIT

# What the toolchain files of this folder share: the GNU compilers called VASK_TARGET-gcc and -g++, and
# the libraries of that machine. These come from
#
#   -DVASK_SYSROOT=DIRECTORY   a copy of the machine's file system with its development files, as
#                              Yocto, Buildroot or a copied root partition give one
#   otherwise                  this machine's own directories for that machine, as Debian's multi-arch
#                              packages fill them
#
# Programs that run during the build (pkg-config, glib-genmarshal, dbus-binding-tool) are always those
# of this machine.

set(VASK_SYSROOT "" CACHE PATH "Copy of the file system of the machine to build for")
# What compiler checks find out has to be of the same system.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES VASK_SYSROOT VASK_TARGET)

if(NOT CMAKE_C_COMPILER)
    set(CMAKE_C_COMPILER ${VASK_TARGET}-gcc)
endif()
if(NOT CMAKE_CXX_COMPILER)
    set(CMAKE_CXX_COMPILER ${VASK_TARGET}-g++)
endif()
set(CMAKE_LIBRARY_ARCHITECTURE ${VASK_TARGET})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)

# pkg-config knows no machine, only directories. Both are for CMake's own run of it.
set(pkg_config_dirs)
if(VASK_SYSROOT)
    set(CMAKE_SYSROOT ${VASK_SYSROOT})
    set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
    set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
    set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
    set(ENV{PKG_CONFIG_SYSROOT_DIR} ${VASK_SYSROOT})
endif()
foreach(directory lib/${VASK_TARGET} lib64 lib share)
    # A machine of its own has all lib directories, this one has other files in the others.
    if(VASK_SYSROOT OR NOT directory MATCHES "^lib(64)?$")
        list(APPEND pkg_config_dirs ${VASK_SYSROOT}/usr/${directory}/pkgconfig)
    endif()
endforeach()
list(JOIN pkg_config_dirs ":" pkg_config_dirs)
set(ENV{PKG_CONFIG_LIBDIR} ${pkg_config_dirs})
