# The target vask_docs makes the reference of the public headers, as HTML in docs/reference/html of the
# build directory. A warning is an error.

find_program(VASK_DOXYGEN doxygen)
set(VASK_REFERENCE_DIR ${PROJECT_BINARY_DIR}/docs/reference)
configure_file(docs/Doxyfile.in ${PROJECT_BINARY_DIR}/docs/Doxyfile @ONLY)
file(MAKE_DIRECTORY ${VASK_REFERENCE_DIR})

if(VASK_DOXYGEN)
    add_custom_target(vask_docs
        COMMAND ${VASK_DOXYGEN} ${PROJECT_BINARY_DIR}/docs/Doxyfile
        COMMENT "Making the reference in ${VASK_REFERENCE_DIR}/html"
        VERBATIM)
else()
    add_custom_target(vask_docs
        COMMAND ${CMAKE_COMMAND} -E echo "doxygen is not installed: scripts/install-deps docs"
        COMMAND ${CMAKE_COMMAND} -E false)
endif()
