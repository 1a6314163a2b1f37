# Quillmarch.exe for x64: one static file that imports nothing but the system's own libraries.
add_executable(Quillmarch WIN32 ${QM_PRODUCT_SOURCES} src/resources/Quillmarch.rc)
target_include_directories(Quillmarch PRIVATE src src/resources $<$<COMPILE_LANGUAGE:CXX>:${CMAKE_BINARY_DIR}/generated>)
target_compile_definitions(Quillmarch PRIVATE _WIN32_WINNT=0x0501)
target_compile_options(Quillmarch PRIVATE $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti -fno-threadsafe-statics
    -ffunction-sections -fdata-sections -Wno-cast-function-type>)
target_compile_options(Quillmarch PRIVATE
    $<$<COMPILE_LANGUAGE:CXX>:-Wall -Wextra -Wshadow -Wconversion -Wno-sign-conversion -Werror>)
target_link_libraries(Quillmarch PRIVATE
    setupapi cfgmgr32 wtsapi32 netapi32 shlwapi version ole32)
target_link_options(Quillmarch PRIVATE -static -s -mwindows
    -Wl,--gc-sections,--dynamicbase,--nxcompat,--high-entropy-va,--no-insert-timestamp
    -Wl,--major-os-version=5,--minor-os-version=2,--major-subsystem-version=5,--minor-subsystem-version=2)
