# SPDX-FileCopyrightText: 2026 The libvask authors
# SPDX-License-Identifier: MIT

include_guard(GLOBAL)

# Installs cmake/NAME.pc.in for pkg-config. It is relative, so that an installation can be moved, unless
# whoever builds has given a whole path for the directory of libraries.
function(vask_install_pkg_config_file name)
    foreach(kind BIN INCLUDE LIB)
        set(VASK_PC_${kind}DIR "\${prefix}/${CMAKE_INSTALL_${kind}DIR}")
        if(IS_ABSOLUTE "${CMAKE_INSTALL_${kind}DIR}")
            set(VASK_PC_${kind}DIR "${CMAKE_INSTALL_${kind}DIR}")
        endif()
    endforeach()
    if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
        set(VASK_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
    else()
        file(RELATIVE_PATH to_prefix /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
        set(VASK_PC_PREFIX "\${pcfiledir}/${to_prefix}")
    endif()
    configure_file(
        ${PROJECT_SOURCE_DIR}/cmake/${name}.pc.in ${PROJECT_BINARY_DIR}/${name}.pc @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/${name}.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
    if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
        return()
    endif()
    # Nobody moves /usr, and pkg-config knows that compilers search it only when it is called by its
    # name.
    install(CODE "
        if(CMAKE_INSTALL_PREFIX STREQUAL \"/usr\")
            set(pc_file \"\$ENV{DESTDIR}/usr/${CMAKE_INSTALL_LIBDIR}/pkgconfig/${name}.pc\")
            file(READ \${pc_file} pc_text)
            string(REGEX REPLACE \"\nprefix=[^\n]*\" \"\nprefix=/usr\" pc_text \"\${pc_text}\")
            file(WRITE \${pc_file} \"\${pc_text}\")
        endif()")
endfunction()
