# A program that prints, for every name of Windows that the simulated machine declares, what the present headers make of
# it. The list of the names is read from its headers, so none can be forgotten; compare.sh compares the two outputs.
find_package(Python3 REQUIRED COMPONENTS Interpreter)
set(QM_LAYOUT ${CMAKE_SOURCE_DIR}/tests/contract/layout)
set(QM_LAYOUT_NAMES ${CMAKE_BINARY_DIR}/generated/Layout.inc)
file(GLOB QM_API_HEADERS CONFIGURE_DEPENDS simwin/kernel/types.h simwin/*/api.h)
add_custom_command(OUTPUT ${QM_LAYOUT_NAMES}
    COMMAND Python3::Interpreter ${QM_LAYOUT}/names.py ${CMAKE_SOURCE_DIR}/simwin ${QM_LAYOUT_NAMES}
    DEPENDS ${QM_LAYOUT}/names.py ${QM_API_HEADERS} VERBATIM)
add_executable(layout ${QM_LAYOUT}/Layout.cpp ${QM_LAYOUT_NAMES})
target_include_directories(layout PRIVATE src ${CMAKE_BINARY_DIR}/generated)
target_link_libraries(layout PRIVATE qm_warnings)
if(WIN32)
    # Later than the product's own: two of the names came with that version.
    target_compile_definitions(layout PRIVATE _WIN32_WINNT=0x0600)
    target_link_options(layout PRIVATE -static -s)
    if(QM_WINDOWS_TESTS)
        # Its other half, by the compiler of this machine, which the toolchain file hides.
        find_program(QM_NATIVE_CXX g++ REQUIRED)
        set(QM_NATIVE_LAYOUT ${CMAKE_BINARY_DIR}/layout-machine)
        add_custom_command(OUTPUT ${QM_NATIVE_LAYOUT}
            COMMAND ${QM_NATIVE_CXX} -std=c++20 -fshort-wchar -I ${CMAKE_SOURCE_DIR}/src -I ${CMAKE_SOURCE_DIR}
                    -I ${CMAKE_BINARY_DIR}/generated ${QM_LAYOUT}/Layout.cpp -o ${QM_NATIVE_LAYOUT}
            DEPENDS ${QM_LAYOUT}/Layout.cpp ${QM_LAYOUT_NAMES} ${QM_API_HEADERS} simwin/win32.h src/platform/win32.h
            VERBATIM)
        add_custom_target(layout_machine ALL DEPENDS ${QM_NATIVE_LAYOUT})
        add_dependencies(layout_machine layout) # so that the list is made once
        add_test(NAME layout COMMAND bash ${QM_LAYOUT}/compare.sh ${QM_NATIVE_LAYOUT} $<TARGET_FILE:layout>)
        set_tests_properties(layout PROPERTIES TIMEOUT 120 LABELS layout)
    endif()
else()
    target_include_directories(layout PRIVATE ${CMAKE_SOURCE_DIR})
    target_compile_options(layout PRIVATE -fshort-wchar)
endif()
