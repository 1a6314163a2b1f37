# quillmarch-rehearse.exe: the simulated machine with the product inside, as on Linux, for x64 Windows. The libraries that it
# takes are headers alone, which this machine has for its own programs.
file(GLOB_RECURSE QM_TOOL_SOURCES CONFIGURE_DEPENDS simwin/*.cpp rehearse/*.cpp)
list(FILTER QM_TOOL_SOURCES EXCLUDE REGEX "Linux\\.cpp$")

# A folder with links to just these: the rest of the folder that has them is for another system.
set(QM_HEADERS ${CMAKE_BINARY_DIR}/headers)
file(MAKE_DIRECTORY ${QM_HEADERS})
foreach(name fmt nlohmann CLI toml++)
    if(EXISTS /usr/include/${name})
        file(CREATE_LINK /usr/include/${name} ${QM_HEADERS}/${name} SYMBOLIC)
    endif()
endforeach()

find_package(Python3 REQUIRED COMPONENTS Interpreter)
add_library(image_objects OBJECT EXCLUDE_FROM_ALL ${QM_PRODUCT_SOURCES})
target_include_directories(image_objects PRIVATE src ${CMAKE_SOURCE_DIR} ${CMAKE_BINARY_DIR}/generated)
target_compile_definitions(image_objects PRIVATE QM_SIMULATED_WINDOWS)
target_compile_options(image_objects PRIVATE -fno-exceptions -fno-rtti -fno-threadsafe-statics -ffunction-sections
    -fno-data-sections ${QM_WARNINGS})
target_precompile_headers(image_objects PRIVATE src/platform/win32.h)
set(QM_IMAGE ${CMAKE_BINARY_DIR}/libimage.a)
add_custom_command(OUTPUT ${QM_IMAGE}
    COMMAND Python3::Interpreter ${CMAKE_SOURCE_DIR}/cmake/image.py --pe --objcopy ${CMAKE_OBJCOPY} --nm ${CMAKE_NM}
            --objdump ${CMAKE_OBJDUMP} --ar ${CMAKE_AR} --archive ${QM_IMAGE} $<FILTER:$<TARGET_OBJECTS:image_objects>,EXCLUDE,gch$>
    DEPENDS ${CMAKE_SOURCE_DIR}/cmake/image.py $<FILTER:$<TARGET_OBJECTS:image_objects>,EXCLUDE,gch$>
    COMMAND_EXPAND_LISTS VERBATIM)

set(QM_WINDRES ${CMAKE_RC_COMPILER})
include(cmake/Resources.cmake)

configure_file(rehearse/quillmarch-rehearse.manifest.in ${QM_GENERATED_RESOURCES}/quillmarch-rehearse.manifest @ONLY)
set_source_files_properties(rehearse/quillmarch-rehearse.rc PROPERTIES
    INCLUDE_DIRECTORIES "${QM_GENERATED_RESOURCES}"
    OBJECT_DEPENDS "${QM_GENERATED_RESOURCES}/quillmarch-rehearse.manifest;${QM_GENERATED_RESOURCES}/Version.h")
list(APPEND QM_TOOL_SOURCES rehearse/quillmarch-rehearse.rc)

add_executable(quillmarch-rehearse EXCLUDE_FROM_ALL ${QM_TOOL_SOURCES} ${QM_PAGE_RESOURCES} ${QM_IMAGE})
target_link_libraries(quillmarch-rehearse PRIVATE ${QM_IMAGE})
target_include_directories(quillmarch-rehearse PRIVATE ${CMAKE_SOURCE_DIR} ${CMAKE_BINARY_DIR}/generated)
target_include_directories(quillmarch-rehearse SYSTEM PRIVATE ${QM_HEADERS})
target_compile_definitions(quillmarch-rehearse PRIVATE QM_VERSION="${PROJECT_VERSION}")
# This compiler, which optimises more here than in the other builds, sees overruns where texts are joined.
target_compile_options(quillmarch-rehearse PRIVATE ${QM_WARNINGS} -Wno-array-bounds -Wno-restrict
    -Wno-stringop-overflow -Wno-stringop-overread)
target_precompile_headers(quillmarch-rehearse PRIVATE simwin/host/Precompiled.h)
# Windows' own header and those of the machine give the same names to different things.
set(QM_HOST_SOURCES ${QM_TOOL_SOURCES})
list(FILTER QM_HOST_SOURCES INCLUDE REGEX "[a-z]Windows\\.cpp$")
set_source_files_properties(${QM_HOST_SOURCES} PROPERTIES SKIP_PRECOMPILE_HEADERS ON)
target_link_options(quillmarch-rehearse PRIVATE -static -s -Wl,--dynamicbase,--nxcompat,--high-entropy-va,--no-insert-timestamp)
