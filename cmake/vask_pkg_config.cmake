# SPDX-FileCopyrightText: 2026 The libvask authors
# SPDX-License-Identifier: MIT

include_guard(GLOBAL)

# Installs cmake/NAME.pc.in for pkg-config. It is relative, so that an installation can be moved.
function(vask_install_pkg_config_file name)
    file(RELATIVE_PATH VASK_PC_TO_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
    configure_file(
        ${PROJECT_SOURCE_DIR}/cmake/${name}.pc.in ${PROJECT_BINARY_DIR}/${name}.pc @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/${name}.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
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
