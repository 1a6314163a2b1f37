# The simulated machine with the product inside, the rehearsal tool, the tests.
find_package(Boost REQUIRED COMPONENTS context)
find_package(fmt REQUIRED)
find_package(GTest REQUIRED)
find_library(QM_HIVEX hivex REQUIRED) # reads the files in which Windows keeps its registry

set(QM_BASE_FLAGS -fshort-wchar -fPIC $<IF:$<BOOL:${QM_ONCE}>,-g1,-g>) # -g1: lines for the sanitizers, no types
if(QM_SANITIZE)
    list(APPEND QM_BASE_FLAGS -fsanitize=address,undefined -fno-sanitize=vptr -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
    add_link_options(-fsanitize=address,undefined)
endif()

# Only with Clang: GCC reads its own precompiled headers no faster than these headers, and the build without them sees
# that a file includes what it needs.
set(QM_PRECOMPILED <algorithm> <cstdint> <cstring> <deque> <functional> <list> <map> <memory> <optional> <set> <span>
    <string> <string_view> <utility> <vector> <fmt/format.h>)
function(qm_precompile name) # further arguments: headers, or REUSE_FROM and a target
    if(QM_ONCE AND CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
        target_precompile_headers(${name} ${ARGN})
    endif()
endfunction()

# --- The simulated machine: an object library, so that every operation is there, called by the image or not.
file(GLOB_RECURSE QM_SIMWIN_SOURCES CONFIGURE_DEPENDS simwin/*.cpp)
list(REMOVE_ITEM QM_SIMWIN_SOURCES ${CMAKE_SOURCE_DIR}/simwin/host/Resources.cpp)
list(FILTER QM_SIMWIN_SOURCES EXCLUDE REGEX "[a-z]Windows\\.cpp$")
add_library(simwin OBJECT ${QM_SIMWIN_SOURCES})
target_include_directories(simwin PUBLIC ${CMAKE_SOURCE_DIR})
target_compile_options(simwin PUBLIC ${QM_BASE_FLAGS})
target_link_libraries(simwin PUBLIC Boost::context fmt::fmt ${QM_HIVEX} PRIVATE qm_warnings)
qm_precompile(simwin PRIVATE ${QM_PRECOMPILED})

# --- The product: linked once into each program that carries the machine. Its globals lie in a section of their own, which
# the machine changes with the simulated process; its operator new and delete stay its own.
find_package(Python3 REQUIRED COMPONENTS Interpreter)
set(QM_PRODUCT_OPTIONS -fno-exceptions -fno-rtti -fno-threadsafe-statics -ffunction-sections -fno-data-sections
    $<$<CXX_COMPILER_ID:GNU>:-fno-gnu-unique>
    $<$<CXX_COMPILER_ID:Clang>:-Wglobal-constructors -Wexit-time-destructors -Wthread-safety -Wthread-safety-beta>)
add_library(product OBJECT ${QM_PRODUCT_SOURCES})
target_include_directories(product PRIVATE src ${CMAKE_SOURCE_DIR} ${CMAKE_BINARY_DIR}/generated)
target_compile_options(product PRIVATE ${QM_BASE_FLAGS} ${QM_PRODUCT_OPTIONS})
target_link_libraries(product PRIVATE qm_warnings)

# name: of the library that is made of the objects of the target `objects`. PLACE_OF: those take the place of this source
# of the product, whose other objects come with them. Further arguments: options of image.py.
function(qm_image name objects)
    cmake_parse_arguments(PARSE_ARGV 2 arg "" "PLACE_OF" "")
    set(archive ${CMAKE_BINARY_DIR}/lib${name}.a)
    set(all $<TARGET_OBJECTS:${objects}>)
    if(arg_PLACE_OF)
        list(APPEND all $<FILTER:$<TARGET_OBJECTS:product>,EXCLUDE,/${arg_PLACE_OF}[.]cpp>)
    endif()
    add_custom_command(OUTPUT ${archive}
        COMMAND Python3::Interpreter ${CMAKE_SOURCE_DIR}/cmake/image.py ${arg_UNPARSED_ARGUMENTS} $<$<BOOL:${QM_SANITIZE}>:--sanitized>
                --archive ${archive} ${all}
        DEPENDS ${CMAKE_SOURCE_DIR}/cmake/image.py ${all}
        COMMAND_EXPAND_LISTS VERBATIM)
    add_custom_target(${name}_archive DEPENDS ${archive})
    add_library(${name} STATIC IMPORTED GLOBAL)
    set_target_properties(${name} PROPERTIES IMPORTED_LOCATION ${archive})
    add_dependencies(${name} ${name}_archive)
endfunction()
qm_image(image product)
qm_image(image_for_tests product --for-tests)

find_program(QM_WINDRES x86_64-w64-mingw32-windres)
include(cmake/Resources.cmake)

add_library(image_resources OBJECT simwin/host/Resources.cpp)
target_include_directories(image_resources PRIVATE ${CMAKE_SOURCE_DIR})
target_compile_options(image_resources PRIVATE ${QM_BASE_FLAGS})
target_link_libraries(image_resources PRIVATE qm_warnings)

# A program that carries the simulated machine and an image.
function(qm_host name image)
    target_link_libraries(${name} PRIVATE simwin image_resources qm_warnings ${image})
endfunction()

# --- The rehearsal tool.
file(GLOB_RECURSE QM_REHEARSE_SOURCES CONFIGURE_DEPENDS rehearse/*.cpp)
list(REMOVE_ITEM QM_REHEARSE_SOURCES ${CMAKE_SOURCE_DIR}/rehearse/main.cpp)
list(FILTER QM_REHEARSE_SOURCES EXCLUDE REGEX "[a-z]Windows\\.cpp$")
add_custom_target(page_resources DEPENDS ${QM_PAGE_RESOURCES}) # also for the lint, which builds nothing else
add_library(rehearse OBJECT ${QM_REHEARSE_SOURCES})
add_dependencies(rehearse page_resources)
target_include_directories(rehearse PRIVATE ${CMAKE_BINARY_DIR}/generated)
target_link_libraries(rehearse PUBLIC simwin PRIVATE qm_warnings)
qm_precompile(rehearse PRIVATE ${QM_PRECOMPILED} <filesystem> <fstream> <nlohmann/json.hpp>)
add_executable(quillmarch-rehearse rehearse/main.cpp)
target_link_libraries(quillmarch-rehearse PRIVATE rehearse)
target_compile_definitions(quillmarch-rehearse PRIVATE QM_VERSION="${PROJECT_VERSION}")
qm_host(quillmarch-rehearse image)

# --- Tests.
enable_testing()
include(GoogleTest)
add_library(qm_harness OBJECT tests/harness/Harness.cpp)
target_link_libraries(qm_harness PUBLIC simwin GTest::gtest PRIVATE qm_warnings)
target_include_directories(qm_harness PUBLIC ${CMAKE_SOURCE_DIR} src)
target_compile_options(qm_harness PUBLIC $<$<BOOL:${QM_ONCE}>:-O0>) # tests take longer to optimise than to run
qm_precompile(qm_harness PRIVATE ${QM_PRECOMPILED} <gtest/gtest.h>)

function(qm_test name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES")
    add_executable(${name} ${arg_SOURCES})
    qm_host(${name} image_for_tests)
    target_link_libraries(${name} PRIVATE qm_harness GTest::gtest)
    qm_precompile(${name} REUSE_FROM qm_harness)
    target_compile_definitions(${name} PRIVATE QM_SOURCE_FOLDER="${CMAKE_SOURCE_DIR}")
    gtest_discover_tests(${name} DISCOVERY_TIMEOUT 120 PROPERTIES TIMEOUT 120 LABELS ${name})
endfunction()

# The rehearsal tool with faults planted in the product: one object of it in another's place.
add_library(planted OBJECT tests/rehearse/Planted.cpp)
target_include_directories(planted PRIVATE src ${CMAKE_SOURCE_DIR})
target_compile_options(planted PRIVATE ${QM_BASE_FLAGS} ${QM_PRODUCT_OPTIONS})
qm_image(image_planted planted PLACE_OF WildcardMatch)
add_executable(rehearse-planted rehearse/main.cpp)
target_link_libraries(rehearse-planted PRIVATE rehearse)
target_compile_definitions(rehearse-planted PRIVATE QM_VERSION="${PROJECT_VERSION}")
qm_host(rehearse-planted image_planted)

# The kernel, by an image of the tests' own in the product's place, and the rehearsal tool with that image.
add_library(probe OBJECT tests/kernel/Probe.cpp)
target_include_directories(probe PRIVATE src ${CMAKE_SOURCE_DIR})
target_compile_options(probe PRIVATE ${QM_BASE_FLAGS} ${QM_PRODUCT_OPTIONS})
qm_image(image_probe probe)
add_executable(rehearse-probe rehearse/main.cpp)
target_link_libraries(rehearse-probe PRIVATE rehearse)
target_compile_definitions(rehearse-probe PRIVATE QM_VERSION="${PROJECT_VERSION}")
qm_host(rehearse-probe image_probe)
add_executable(kernel tests/kernel/KernelTest.cpp tests/kernel/MachineTest.cpp)
qm_host(kernel image_probe)
target_link_libraries(kernel PRIVATE GTest::gtest GTest::gtest_main)
gtest_discover_tests(kernel DISCOVERY_TIMEOUT 120 PROPERTIES TIMEOUT 120 LABELS kernel)

foreach(room support config actions engine inventory balloon host machine)
    file(GLOB room_sources CONFIGURE_DEPENDS tests/unit/${room}/*.cpp)
    if(room_sources)
        qm_test(unit_${room} SOURCES ${room_sources})
        if(room STREQUAL "config") # the check of a configuration is compared with the reader
            target_link_libraries(unit_config PRIVATE rehearse)
        endif()
    endif()
endforeach()
file(GLOB contract_sources CONFIGURE_DEPENDS tests/contract/*.cpp)
if(contract_sources)
    qm_test(contract SOURCES ${contract_sources})
endif()

# Random histories under seeded schedules; a fixed number of seeds with every test run.
file(GLOB storm_sources CONFIGURE_DEPENDS tests/storms/*.cpp)
set(QM_STORM_SEEDS 200 CACHE STRING "seeds of the storms that the tests run")
set(QM_FAULTS_EVERY 12 CACHE STRING "of how many calls of one operation the fault loop fails one")
if(storm_sources)
    add_executable(storm ${storm_sources})
    target_include_directories(storm PRIVATE src)
    target_link_libraries(storm PRIVATE rehearse)
    qm_host(storm image)
    qm_precompile(storm REUSE_FROM rehearse)
    add_test(NAME storms COMMAND storm ${QM_STORM_SEEDS})
    set_tests_properties(storms PROPERTIES TIMEOUT 900 LABELS storm COST 1000) # first: whatever starts last delays the end
    # Each call fails in its turn.
    add_executable(faults tests/faults/main.cpp tests/storms/Children.cpp tests/storms/Rest.cpp tests/storms/Trial.cpp)
    target_link_libraries(faults PRIVATE rehearse)
    qm_host(faults image)
    qm_precompile(faults REUSE_FROM rehearse)
    target_compile_definitions(faults PRIVATE QM_SCENARIOS="${CMAKE_SOURCE_DIR}/tests/scenarios")
    add_test(NAME faults COMMAND faults --every ${QM_FAULTS_EVERY})
    set_tests_properties(faults PROPERTIES TIMEOUT 900 LABELS storm COST 900)
endif()

# Whole machines as files, judged by their own expectations.
file(GLOB_RECURSE scenarios RELATIVE ${CMAKE_SOURCE_DIR} CONFIGURE_DEPENDS tests/scenarios/*.toml examples/*.toml)
foreach(scenario ${scenarios})
    if(scenario MATCHES "/parts/" OR scenario MATCHES "/real/")
        continue() # included by others; or in need of an export that may be missing next to the checkout
    endif()
    add_test(NAME ${scenario} COMMAND quillmarch-rehearse --check --quiet ${CMAKE_SOURCE_DIR}/${scenario})
    set_tests_properties(${scenario} PROPERTIES TIMEOUT 120 LABELS scenario)
endforeach()
option(QM_BENCH "Build the benchmarks" OFF)
if(QM_BENCH AND EXISTS ${CMAKE_SOURCE_DIR}/bench/CMakeLists.txt)
    add_subdirectory(bench)
endif()
if(QM_FUZZ AND EXISTS ${CMAKE_SOURCE_DIR}/fuzz/CMakeLists.txt)
    add_subdirectory(fuzz)
endif()
add_test(NAME house_calls COMMAND bash ${CMAKE_SOURCE_DIR}/tests/house/calls.sh ${CMAKE_SOURCE_DIR}/quill)
set_tests_properties(house_calls PROPERTIES TIMEOUT 120 LABELS house)
# Where each function has a section of its own and nothing but small static functions is merged into others.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND NOT QM_SANITIZE)
    find_package(Python3 REQUIRED COMPONENTS Interpreter)
    add_test(NAME house_reach COMMAND Python3::Interpreter ${CMAKE_SOURCE_DIR}/tests/house/reach.py ${CMAKE_CXX_COMPILER}
        ${CMAKE_SOURCE_DIR}/tests/house/unreached.txt $<TARGET_OBJECTS:product> COMMAND_EXPAND_LISTS)
    set_tests_properties(house_reach PROPERTIES TIMEOUT 60 LABELS house)
endif()
if(EXISTS ${CMAKE_SOURCE_DIR}/tests/rehearse/CMakeLists.txt)
    add_subdirectory(tests/rehearse)
endif()

include(cmake/Package.cmake)
