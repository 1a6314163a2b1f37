# The rehearsal tool as a package for Debian: program, manual page, completion, documents, examples. `cpack` in the build
# folder makes it. What the program needs of other packages is read from the program.
find_program(QM_GZIP gzip REQUIRED)
set(QM_MANUAL ${CMAKE_BINARY_DIR}/quillmarch-rehearse.1.gz)
add_custom_command(OUTPUT ${QM_MANUAL}
    COMMAND sh -c "'${QM_GZIP}' -9n <'${CMAKE_SOURCE_DIR}/docs/quillmarch-rehearse.1' >'${QM_MANUAL}'"
    DEPENDS ${CMAKE_SOURCE_DIR}/docs/quillmarch-rehearse.1 VERBATIM)
add_custom_target(manual DEPENDS ${QM_MANUAL})

set(QM_SHARED_DOCUMENTS share/doc/quillmarch-rehearse)
install(TARGETS quillmarch-rehearse RUNTIME DESTINATION bin)
install(FILES ${QM_MANUAL} DESTINATION share/man/man1)
install(FILES docs/quillmarch-rehearse.bash DESTINATION share/bash-completion/completions RENAME quillmarch-rehearse)
install(FILES docs/rehearsing.md docs/configuration.md docs/windows.md docs/fleets.md docs/security.md packaging/deb/copyright
    DESTINATION ${QM_SHARED_DOCUMENTS})
install(DIRECTORY examples DESTINATION ${QM_SHARED_DOCUMENTS})

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME quillmarch-rehearse)
set(CPACK_PACKAGE_VENDOR "Tarn Holve")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "rehearse a Quillmarch configuration on a described Windows machine")
set(CPACK_PACKAGE_DESCRIPTION "Runs the Quillmarch service, which gives COM ports their numbers, on a simulated Windows
machine made of registry exports or a description, and reports what a configuration would do there.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "Tarn Holve")
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
include(CPack)
