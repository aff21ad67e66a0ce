# Run by cpack once it has gathered what goes into the packages: adds the licence and the changes that Debian wants in
# each of them, and compresses what Debian wants compressed. An installation without packages does not need that.
function(compress file)
    execute_process(COMMAND gzip -9 --no-name --force "${file}" COMMAND_ERROR_IS_FATAL ANY)
endfunction()

file(READ "${CPACK_RESOURCE_FILE_LICENSE}" license)
if(NOT license MATCHES "^MIT License\n\nCopyright \\(c\\) ([^\n]*)\n\n(.*)\n$")
    message(FATAL_ERROR "${CPACK_RESOURCE_FILE_LICENSE} is not as the copyright file expects it")
endif()
set(holders "${CMAKE_MATCH_1}")
string(REPLACE "\n\n" "\n.\n" license "${CMAKE_MATCH_2}")
string(REPLACE "\n" "\n " license "${license}")

foreach(component IN LISTS CPACK_COMPONENTS_ALL)
    string(TOUPPER "${component}" upper)
    set(staged "${CPACK_TEMPORARY_DIRECTORY}/${component}${CPACK_PACKAGING_INSTALL_PREFIX}")
    set(docs "${staged}/share/doc/${CPACK_DEBIAN_${upper}_PACKAGE_NAME}")
    file(COPY "${CMAKE_CURRENT_LIST_DIR}/changelog" DESTINATION "${docs}")
    compress("${docs}/changelog")
    file(WRITE "${docs}/copyright" "Format: https://www.debian.org/doc/packaging-manuals/copyright-format/1.0/

Files: *
Copyright: ${holders}
License: Expat
 ${license}
")
    file(GLOB_RECURSE pages "${staged}/share/man/*.[1-9]")
    foreach(page IN LISTS pages)
        compress("${page}")
    endforeach()
endforeach()

# Whatever the builder's umask is.
execute_process(COMMAND chmod -R u=rwX,go=rX "${CPACK_TEMPORARY_DIRECTORY}" COMMAND_ERROR_IS_FATAL ANY)
