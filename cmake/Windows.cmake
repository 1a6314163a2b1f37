# Quillmarch.exe for x64 or x86, as the toolchain says: one static file that imports nothing but the system's own
# libraries. Also the programs that test it, and what it relies on, under Wine.
option(QM_WINDOWS_TESTS "Build the tests that run under Wine" ON)

set(QM_WARNINGS -Wall -Wextra -Wshadow -Wconversion -Wno-sign-conversion -Werror)
# cfgmgr32 before setupapi: both have the operations of the configuration manager, and the first one gives them.
# wtsapi32 and netapi32 are absent: a library that is imported by name could be taken from the program's own folder, so
# they are loaded by their full path when they are needed.
# advapi32 before kernel32, which has CreateProcessAsUserA too, but only in later versions of Windows.
set(QM_SYSTEM_LIBRARIES advapi32 cfgmgr32 setupapi shlwapi version ole32)

# The oldest Windows that loads the edition, and what only one of them has.
if(CMAKE_SYSTEM_PROCESSOR STREQUAL "x86_64")
    set(QM_OLDEST_MINOR 2)
    set(QM_EDITION_OPTIONS -Wl,--high-entropy-va)
else()
    set(QM_OLDEST_MINOR 1)
    set(QM_EDITION_OPTIONS "")
endif()

add_library(product OBJECT ${QM_PRODUCT_SOURCES})
target_include_directories(product PRIVATE src ${CMAKE_BINARY_DIR}/generated)
target_compile_definitions(product PRIVATE _WIN32_WINNT=0x0501)
target_compile_options(product PRIVATE -fno-exceptions -fno-rtti -fno-threadsafe-statics -ffunction-sections
    -fdata-sections -Wno-cast-function-type ${QM_WARNINGS})
# Nearly all the time of a file goes into the SDK's headers.
target_precompile_headers(product PRIVATE src/platform/win32.h)

add_executable(Quillmarch WIN32 $<TARGET_OBJECTS:product> src/resources/Quillmarch.rc)
target_include_directories(Quillmarch PRIVATE src/resources ${QM_GENERATED_RESOURCES})
set_target_properties(Quillmarch PROPERTIES LINKER_LANGUAGE CXX)
file(GLOB QM_RESOURCE_FILES CONFIGURE_DEPENDS src/resources/*)
set_source_files_properties(src/resources/Quillmarch.rc PROPERTIES OBJECT_DEPENDS
    "${QM_RESOURCE_FILES};${QM_GENERATED_RESOURCES}/Version.h")
target_link_libraries(Quillmarch PRIVATE ${QM_SYSTEM_LIBRARIES})
target_link_options(Quillmarch PRIVATE -static -s -mwindows
    ${QM_EDITION_OPTIONS} -Wl,--gc-sections,--dynamicbase,--nxcompat,--no-insert-timestamp
    -Wl,--major-os-version=5,--minor-os-version=${QM_OLDEST_MINOR}
    -Wl,--major-subsystem-version=5,--minor-subsystem-version=${QM_OLDEST_MINOR})

if(CMAKE_SYSTEM_PROCESSOR STREQUAL "x86_64")
    include(cmake/WindowsTool.cmake)
endif()
if(NOT QM_WINDOWS_TESTS)
    return()
endif()

# --- Tests. They are not optimised: they are built more often than they run.
enable_testing()
include(GoogleTest)
set(gtest_disable_pthreads ON CACHE BOOL "" FORCE)
set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
set(BUILD_GMOCK OFF CACHE BOOL "" FORCE)
add_subdirectory(/usr/src/googletest googletest EXCLUDE_FROM_ALL)
target_compile_options(gtest PRIVATE -O0)
target_compile_options(gtest_main PRIVATE -O0)

# name: of the program. lock: tests that share it never run at the same time.
function(qm_windows_test name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "LOCK" "SOURCES")
    add_executable(${name} ${arg_SOURCES})
    target_include_directories(${name} PRIVATE src ${CMAKE_SOURCE_DIR})
    target_compile_definitions(${name} PRIVATE _WIN32_WINNT=0x0501)
    target_compile_options(${name} PRIVATE -O0 -Wno-cast-function-type ${QM_WARNINGS})
    target_link_options(${name} PRIVATE -s)
    target_link_libraries(${name} PRIVATE gtest gtest_main ${QM_SYSTEM_LIBRARIES})
    gtest_discover_tests(${name} NO_PRETTY_VALUES DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60
        PROPERTIES TIMEOUT 300 RESOURCE_LOCK ${arg_LOCK} LABELS ${name})
endfunction()

# What keeps the Wine server while the tests run.
add_executable(keep WIN32 tests/windows/Keep.cpp)

file(GLOB contract_sources CONFIGURE_DEPENDS tests/contract/*.cpp)
qm_windows_test(contract LOCK machine SOURCES ${contract_sources})
target_precompile_headers(contract PRIVATE tests/contract/Contract.h)

qm_windows_test(registry_access LOCK machine
    SOURCES tests/windows/RegistryAccessTest.cpp $<TARGET_OBJECTS:product>)

qm_windows_test(executable LOCK desktop SOURCES tests/windows/ExecutableTest.cpp)
add_dependencies(executable Quillmarch)
target_compile_definitions(executable PRIVATE QM_RESOURCE_FOLDER="Z:${CMAKE_SOURCE_DIR}/src/resources/")

# The test bed: a configuration manager of its own, which takes the place of Wine's for one program.
add_library(bed_cfgmgr32 SHARED tests/windows/bed/Cfgmgr32.cpp tests/windows/bed/Cfgmgr32.def)
set_target_properties(bed_cfgmgr32 PROPERTIES PREFIX "" OUTPUT_NAME bed-cfgmgr32)
target_include_directories(bed_cfgmgr32 PRIVATE src)
target_compile_definitions(bed_cfgmgr32 PRIVATE _WIN32_WINNT=0x0501)
target_compile_options(bed_cfgmgr32 PRIVATE -Wno-cast-function-type ${QM_WARNINGS})
target_link_options(bed_cfgmgr32 PRIVATE -static -s)
target_link_libraries(bed_cfgmgr32 PRIVATE setupapi)
add_library(planted SHARED tests/windows/bed/Planted.cpp)
set_target_properties(planted PROPERTIES PREFIX "")
add_executable(loads-by-name tests/windows/bed/LoadsByName.cpp)
foreach(target planted loads-by-name)
    target_include_directories(${target} PRIVATE src)
    target_compile_definitions(${target} PRIVATE _WIN32_WINNT=0x0501)
    target_link_options(${target} PRIVATE -static -s)
endforeach()
qm_windows_test(debug_run LOCK desktop SOURCES tests/windows/DebugRunTest.cpp)
add_dependencies(debug_run Quillmarch bed_cfgmgr32 planted loads-by-name)

# With the debug run, which has the same database.
qm_windows_test(number_faults LOCK desktop SOURCES tests/windows/NumberFaultsTest.cpp $<TARGET_OBJECTS:product>)

# Pictures of the balloons are kept for people to look at.
qm_windows_test(balloon LOCK desktop SOURCES tests/windows/BalloonTest.cpp)
add_dependencies(balloon Quillmarch)
target_compile_definitions(balloon PRIVATE QM_PICTURE_FOLDER="Z:${CMAKE_BINARY_DIR}/pictures/")

# The package's scripts that read a machine, in a prefix of their own; the reports are compared with this host's.
add_executable(pnputil tests/windows/bed/PnpUtil.cpp)
add_executable(rehearsal-tool tests/windows/bed/RehearsalTool.cpp)
target_link_options(pnputil PRIVATE -static -s)
target_link_options(rehearsal-tool PRIVATE -static -s)
if(TARGET quillmarch-rehearse)
    set(QM_TOOL $<TARGET_FILE:quillmarch-rehearse>)
    set_target_properties(quillmarch-rehearse PROPERTIES EXCLUDE_FROM_ALL OFF)
    add_test(NAME rehearse COMMAND bash ${CMAKE_SOURCE_DIR}/tests/windows/rehearse.sh
        ${CMAKE_SOURCE_DIR}/build/dev/quillmarch-rehearse ${QM_TOOL} ${CMAKE_SOURCE_DIR}/build/dev/storm 20)
    set_tests_properties(rehearse PROPERTIES TIMEOUT 900 LABELS rehearse COST 1000) # first: it takes longest
endif()
add_test(NAME scripts COMMAND bash ${CMAKE_SOURCE_DIR}/tests/windows/scripts.sh ${CMAKE_SOURCE_DIR}/packaging
    ${CMAKE_SOURCE_DIR}/build/dev/quillmarch-rehearse $<TARGET_FILE:pnputil> $<TARGET_FILE:rehearsal-tool> ${QM_TOOL})
set_tests_properties(scripts PROPERTIES TIMEOUT 600 LABELS scripts)
