# SPDX-FileCopyrightText: 2026 The libvask authors
# SPDX-License-Identifier: MIT

# A browser in a library, for tests and benchmarks of the sample plug-in. There is no such target
# without QtWebKit. Who links it depends on demo_plugin as well.
#
# Every folder that links it includes this, because Qt's own targets are known only in the folder
# that has looked for them.
find_package(Qt5WebKitWidgets QUIET)
if(TARGET web_host OR NOT Qt5WebKitWidgets_FOUND OR NOT TARGET demo_plugin)
    return()
endif()

# A library of its own, because Qt asks for other compiler options than the tests have.
add_library(web_host OBJECT ${CMAKE_CURRENT_LIST_DIR}/web_host.cpp)
if(VASK_SANITIZE)
    target_sources(web_host PRIVATE ${CMAKE_CURRENT_LIST_DIR}/without_deep_binding.cpp)
endif()
target_include_directories(
    web_host PUBLIC ${CMAKE_CURRENT_LIST_DIR}
    PRIVATE ${CMAKE_CURRENT_LIST_DIR}/.. ${CMAKE_CURRENT_LIST_DIR}/../../testkit/include)
target_compile_definitions(
    web_host PRIVATE VASK_TEST_PLUGIN_DIR="$<TARGET_FILE_DIR:demo_plugin>")
target_link_libraries(web_host PRIVATE Qt5::WebKitWidgets)
