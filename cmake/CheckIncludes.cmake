# Fails the build when a folder includes one that it may not know.
add_custom_target(check_includes ALL
    COMMAND ${CMAKE_COMMAND} -DSOURCE_DIR=${PROJECT_SOURCE_DIR} -P ${PROJECT_SOURCE_DIR}/cmake/check_includes.cmake
    COMMENT "Checking who includes whom"
    VERBATIM)
