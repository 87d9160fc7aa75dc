# Gives a package that is headers alone to the cross compiler. Its folder lies in /usr/include, beside headers that must
# not be seen: so that one folder gets a place of its own in the build tree.
function(ov_header_only target folder)
    set(place ${CMAKE_BINARY_DIR}/headers)
    if(NOT EXISTS /usr/include/${folder})
        message(FATAL_ERROR "/usr/include/${folder} is missing: see cmake/packages.txt")
    endif()
    file(MAKE_DIRECTORY ${place})
    file(CREATE_LINK /usr/include/${folder} ${place}/${folder} SYMBOLIC)
    add_library(${target} INTERFACE IMPORTED GLOBAL)
    target_include_directories(${target} SYSTEM INTERFACE ${place})
endfunction()
