# The version line shows the date and time of the commit, not of the build, so that builds can be repeated.
find_package(Git QUIET)
set(QM_BUILD_DATE "unknown")
set(QM_BUILD_TIME "00:00:00")
if(GIT_FOUND)
    execute_process(
        COMMAND ${CMAKE_COMMAND} -E env TZ=UTC ${GIT_EXECUTABLE} log -1 --date=format-local:%Y-%m-%dT%H:%M:%S --format=%cd
        WORKING_DIRECTORY ${CMAKE_SOURCE_DIR}
        OUTPUT_VARIABLE QM_STAMP OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET RESULT_VARIABLE QM_STAMP_RESULT)
    if(QM_STAMP_RESULT EQUAL 0 AND QM_STAMP MATCHES "^([0-9-]+)T([0-9:]+)$")
        set(QM_BUILD_DATE ${CMAKE_MATCH_1})
        set(QM_BUILD_TIME ${CMAKE_MATCH_2})
    endif()
endif()
configure_file(${CMAKE_SOURCE_DIR}/src/host/BuildStamp.h.in ${CMAKE_BINARY_DIR}/generated/host/BuildStamp.h @ONLY)
