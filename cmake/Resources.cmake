# What the rehearsal tool carries with it: the resources of the product's executable, as the machine's FindResourceA reads
# them, and the styles and scripts of its pages. QM_WINDRES: the resource compiler.
set(QM_RESOURCES ${CMAKE_BINARY_DIR}/Quillmarch.res)
file(GLOB QM_RESOURCE_FILES CONFIGURE_DEPENDS src/resources/*)
add_custom_command(OUTPUT ${QM_RESOURCES}
    COMMAND ${QM_WINDRES} -O res --preprocessor=gcc --preprocessor-arg=-E --preprocessor-arg=-xc
            --preprocessor-arg=-DRC_INVOKED -I ${CMAKE_SOURCE_DIR}/src/resources -I ${QM_GENERATED_RESOURCES}
            ${CMAKE_SOURCE_DIR}/src/resources/Quillmarch.rc ${QM_RESOURCES}
    DEPENDS ${QM_RESOURCE_FILES} ${QM_GENERATED_RESOURCES}/Version.h VERBATIM)
set_source_files_properties(simwin/host/Resources.cpp PROPERTIES OBJECT_DEPENDS ${QM_RESOURCES}
    COMPILE_DEFINITIONS QM_RESOURCE_FILE="${QM_RESOURCES}")

# A page's style and script, embedded with their hashes, as generated/ROOM/Resources.h. Further arguments: the script and
# the styles, in rehearse/.
set(QM_PAGE_RESOURCES)
function(qm_page_resources room)
    set(header ${CMAKE_BINARY_DIR}/generated/${room}/Resources.h)
    file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/generated/${room})
    list(TRANSFORM ARGN PREPEND ${CMAKE_SOURCE_DIR}/rehearse/ OUTPUT_VARIABLE files)
    set(embed ${CMAKE_SOURCE_DIR}/rehearse/html/embed.py)
    add_custom_command(OUTPUT ${header}
        COMMAND Python3::Interpreter ${embed} rehearse::${room} ${header} ${files}
        DEPENDS ${embed} ${files} VERBATIM)
    set(QM_PAGE_RESOURCES ${QM_PAGE_RESOURCES} ${header} PARENT_SCOPE)
endfunction()
qm_page_resources(html html/Page.js html/Page.css)
qm_page_resources(fleet fleet/Fleet.js html/Page.css fleet/Fleet.css)
