# The product as a shared object on the simulated machine, the rehearsal tool, the tests.
find_package(Boost REQUIRED COMPONENTS context)
find_package(fmt REQUIRED)
find_package(GTest REQUIRED)
find_library(QM_HIVEX hivex REQUIRED) # reads the files in which Windows keeps its registry

set(QM_BASE_FLAGS -fshort-wchar -fPIC -g)
if(QM_SANITIZE)
    list(APPEND QM_BASE_FLAGS -fsanitize=address,undefined -fno-sanitize=vptr -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
    add_link_options(-fsanitize=address,undefined)
endif()

# --- The simulated machine: an object library, so that every operation is there for the images that are loaded later.
file(GLOB_RECURSE QM_SIMWIN_SOURCES CONFIGURE_DEPENDS simwin/*.cpp)
add_library(simwin OBJECT ${QM_SIMWIN_SOURCES})
target_include_directories(simwin PUBLIC ${CMAKE_SOURCE_DIR})
target_compile_options(simwin PUBLIC ${QM_BASE_FLAGS})
target_link_libraries(simwin PUBLIC Boost::context fmt::fmt ${QM_HIVEX} ${CMAKE_DL_LIBS} PRIVATE qm_warnings)

# --- The product: one shared object, loaded afresh for each simulated process. Its calls of Windows resolve to the host
# program; its operator new and delete stay its own.
add_library(quillmarch SHARED ${QM_PRODUCT_SOURCES})
target_include_directories(quillmarch PUBLIC src ${CMAKE_SOURCE_DIR} PRIVATE ${CMAKE_BINARY_DIR}/generated)
target_compile_options(quillmarch PUBLIC ${QM_BASE_FLAGS} PRIVATE -fno-exceptions -fno-rtti -fno-threadsafe-statics
    -ffunction-sections)
target_compile_options(quillmarch PRIVATE $<$<CXX_COMPILER_ID:GNU>:-fno-gnu-unique>
    $<$<CXX_COMPILER_ID:Clang>:-Wglobal-constructors -Wexit-time-destructors -Wthread-safety -Wthread-safety-beta>)
target_link_options(quillmarch PRIVATE -Wl,-Bsymbolic -Wl,--version-script=${CMAKE_SOURCE_DIR}/cmake/product.map)
set_target_properties(quillmarch PROPERTIES LINK_DEPENDS ${CMAKE_SOURCE_DIR}/cmake/product.map)
target_link_libraries(quillmarch PRIVATE qm_warnings)

# The resources of the executable, as the machine's FindResourceA reads them.
find_program(QM_WINDRES x86_64-w64-mingw32-windres)
set(QM_RESOURCES ${CMAKE_BINARY_DIR}/Quillmarch.res)
if(EXISTS ${CMAKE_SOURCE_DIR}/src/resources/Quillmarch.rc)
    file(GLOB QM_RESOURCE_FILES CONFIGURE_DEPENDS src/resources/*)
    add_custom_command(OUTPUT ${QM_RESOURCES}
        COMMAND ${QM_WINDRES} -O res --preprocessor=gcc --preprocessor-arg=-E --preprocessor-arg=-xc
                --preprocessor-arg=-DRC_INVOKED -I ${CMAKE_SOURCE_DIR}/src/resources -I ${QM_GENERATED_RESOURCES}
                ${CMAKE_SOURCE_DIR}/src/resources/Quillmarch.rc ${QM_RESOURCES}
        DEPENDS ${QM_RESOURCE_FILES} ${QM_GENERATED_RESOURCES}/Version.h VERBATIM)
    add_custom_target(resources ALL DEPENDS ${QM_RESOURCES})
endif()

# A program that carries the simulated machine and loads the product's image.
function(qm_host name)
    target_link_libraries(${name} PRIVATE simwin qm_warnings)
    target_link_options(${name} PRIVATE -rdynamic -Wl,--no-allow-shlib-undefined)
    target_compile_definitions(${name} PRIVATE
        QM_IMAGE_FILE="$<TARGET_FILE:quillmarch>" QM_RESOURCE_FILE="${QM_RESOURCES}")
    add_dependencies(${name} quillmarch)
    if(TARGET resources)
        add_dependencies(${name} resources)
    endif()
endfunction()

# --- The rehearsal tool.
file(GLOB_RECURSE QM_REHEARSE_SOURCES CONFIGURE_DEPENDS rehearse/*.cpp)
list(REMOVE_ITEM QM_REHEARSE_SOURCES ${CMAKE_SOURCE_DIR}/rehearse/main.cpp)
# The page's style and script, embedded with their hashes.
find_package(Python3 REQUIRED COMPONENTS Interpreter)
set(QM_HTML ${CMAKE_SOURCE_DIR}/rehearse/html)
set(QM_HTML_RESOURCES ${CMAKE_BINARY_DIR}/generated/html/Resources.h)
file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/generated/html)
add_custom_command(OUTPUT ${QM_HTML_RESOURCES}
    COMMAND Python3::Interpreter ${QM_HTML}/embed.py ${QM_HTML}/Page.css ${QM_HTML}/Page.js ${QM_HTML_RESOURCES}
    DEPENDS ${QM_HTML}/embed.py ${QM_HTML}/Page.css ${QM_HTML}/Page.js VERBATIM)
add_custom_target(page_resources DEPENDS ${QM_HTML_RESOURCES}) # also for the lint, which builds nothing else
add_library(rehearse OBJECT ${QM_REHEARSE_SOURCES} ${QM_HTML_RESOURCES})
add_dependencies(rehearse page_resources)
target_include_directories(rehearse PRIVATE ${CMAKE_BINARY_DIR}/generated)
target_link_libraries(rehearse PUBLIC simwin PRIVATE qm_warnings)
add_executable(quillmarch-rehearse rehearse/main.cpp)
target_link_libraries(quillmarch-rehearse PRIVATE rehearse)
target_compile_definitions(quillmarch-rehearse PRIVATE QM_VERSION="${PROJECT_VERSION}")
qm_host(quillmarch-rehearse)

# --- Tests.
enable_testing()
include(GoogleTest)
add_library(qm_harness OBJECT tests/harness/Harness.cpp)
target_link_libraries(qm_harness PUBLIC simwin GTest::gtest PRIVATE qm_warnings)
target_compile_definitions(qm_harness PRIVATE QM_RESOURCE_FILE="${QM_RESOURCES}" QM_IMAGE_FILE="$<TARGET_FILE:quillmarch>")
target_include_directories(qm_harness PUBLIC ${CMAKE_SOURCE_DIR} src)

function(qm_test name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES")
    add_executable(${name} ${arg_SOURCES})
    qm_host(${name})
    target_link_libraries(${name} PRIVATE qm_harness quillmarch GTest::gtest)
    target_compile_definitions(${name} PRIVATE QM_SOURCE_FOLDER="${CMAKE_SOURCE_DIR}")
    gtest_discover_tests(${name} DISCOVERY_TIMEOUT 120 PROPERTIES TIMEOUT 120 LABELS ${name})
endfunction()

# The kernel, by an image of the tests' own in the product's place.
add_library(probe SHARED tests/kernel/Probe.cpp)
target_include_directories(probe PRIVATE src ${CMAKE_SOURCE_DIR})
target_compile_options(probe PRIVATE ${QM_BASE_FLAGS} -fno-exceptions -fno-rtti
    $<$<CXX_COMPILER_ID:GNU>:-fno-gnu-unique>)
target_link_options(probe PRIVATE -Wl,-Bsymbolic)
add_executable(kernel tests/kernel/KernelTest.cpp tests/kernel/MachineTest.cpp)
qm_host(kernel)
add_dependencies(kernel probe)
target_compile_definitions(kernel PRIVATE PROBE_IMAGE="$<TARGET_FILE:probe>")
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
    qm_host(storm)
    add_test(NAME storms COMMAND storm ${QM_STORM_SEEDS})
    set_tests_properties(storms PROPERTIES TIMEOUT 900 LABELS storm COST 1000) # first: whatever starts last delays the end
    # Each call fails in its turn.
    add_executable(faults tests/faults/main.cpp tests/storms/Children.cpp tests/storms/Rest.cpp tests/storms/Trial.cpp)
    target_link_libraries(faults PRIVATE rehearse)
    qm_host(faults)
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
        ${CMAKE_SOURCE_DIR}/tests/house/unreached.txt $<TARGET_OBJECTS:quillmarch> COMMAND_EXPAND_LISTS)
    set_tests_properties(house_reach PROPERTIES TIMEOUT 60 LABELS house)
endif()
if(EXISTS ${CMAKE_SOURCE_DIR}/tests/rehearse/CMakeLists.txt)
    add_subdirectory(tests/rehearse)
endif()

include(cmake/Package.cmake)
