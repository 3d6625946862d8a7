# SPDX-FileCopyrightText: 2026 The libvask authors
# SPDX-License-Identifier: MIT

# What is installed: the library, its headers, the bus interface, the manual page, and what other
# builds find it by.

include(CMakePackageConfigHelpers)

set(vask_headers
    include/vask_app.h
    include/vask_app_bridge.h
    include/vask_child.h
    include/vask_child_cmd.h
    include/vask_error.h
    include/vask_exec.h
    include/vask_export.h
    include/vask_np_base.h
    include/vask_np_factory.h
    include/vask_np_instance.h
    include/vask_object.h
    include/vask_script.h
    include/vask_shared_info.h
    include/vask_socket.h
    include/vask_utils.h
    ${PROJECT_BINARY_DIR}/include/vask_version.h
    include/vask_window_props.h)
set(npapi_headers
    include/npapi/npapi.h
    include/npapi/npfunctions.h
    include/npapi/npruntime.h
    include/npapi/nptypes.h)

install(TARGETS vask EXPORT vask-targets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(FILES ${vask_headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vask)
install(FILES ${npapi_headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vask/npapi)
install(FILES ${VASK_CHILD_INTERFACE_XML} DESTINATION ${CMAKE_INSTALL_DATADIR}/dbus-1/interfaces)
configure_file(docs/man/vask.7.in ${PROJECT_BINARY_DIR}/docs/man/vask.7 @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/docs/man/vask.7 DESTINATION ${CMAKE_INSTALL_MANDIR}/man7)

set(cmake_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/vask)
configure_package_config_file(cmake/vask-config.cmake.in ${CMAKE_CURRENT_BINARY_DIR}/vask-config.cmake
    INSTALL_DESTINATION ${cmake_package_dir})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/vask-config-version.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES
    ${CMAKE_CURRENT_BINARY_DIR}/vask-config.cmake
    ${CMAKE_CURRENT_BINARY_DIR}/vask-config-version.cmake
    DESTINATION ${cmake_package_dir})
install(EXPORT vask-targets NAMESPACE vask:: DESTINATION ${cmake_package_dir})
# For a project beside this one: with vask_DIR set to the build directory it needs no installation.
export(EXPORT vask-targets NAMESPACE vask:: FILE ${CMAKE_CURRENT_BINARY_DIR}/vask-targets.cmake)

include(${CMAKE_CURRENT_LIST_DIR}/vask_pkg_config.cmake)
vask_install_pkg_config_file(vask)
