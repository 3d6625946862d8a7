# SPDX-FileCopyrightText: 2026 The libvask authors
# SPDX-License-Identifier: MIT

# The test kit as a part of its own: the component "test" of the CMake package, and vask-test.pc.

vask_find_library_when_installed(vask_scripted_child)
install(TARGETS vask_test vask_sealed vask_scripted_child EXPORT vask-test-targets
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES child/vask-scripted-child.1 sealed/vask-sealed.1
    DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(DIRECTORY include/vask_test DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
    FILES_MATCHING PATTERN *.h)

set(vask_test_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/vask)
install(EXPORT vask-test-targets NAMESPACE vask:: DESTINATION ${vask_test_package_dir})
export(EXPORT vask-test-targets NAMESPACE vask::
    FILE ${PROJECT_BINARY_DIR}/vask-test-targets.cmake)

include(${PROJECT_SOURCE_DIR}/cmake/vask_pkg_config.cmake)
vask_install_pkg_config_file(vask-test)
