# ov_write_symbol_map(<file> <version> <folder>…): a linker's version script that shows what a host may bind to and
# nothing else: the operations, tables and type information of every class that a header of the folders marks
# OV_EXPORT and the source file beside it defines. Copies of templates and inline classes stay inside.
function(ov_write_symbol_map file version)
    set(patterns "")
    foreach(folder ${ARGN})
        file(GLOB headers CONFIGURE_DEPENDS "${CMAKE_CURRENT_SOURCE_DIR}/${folder}/*.h")
        foreach(header ${headers})
            string(REGEX REPLACE "\\.h$" ".cpp" source "${header}")
            if(EXISTS "${source}")
                set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${header}")
                file(STRINGS "${header}" lines REGEX "^class OV_EXPORT [A-Za-z0-9_]+")
                foreach(line ${lines})
                    string(REGEX REPLACE "^class OV_EXPORT ([A-Za-z0-9_]+).*" "\\1" class "${line}")
                    foreach(pattern "${class}::*" "vtable for ${class}" "typeinfo for ${class}" "typeinfo name for ${class}")
                        string(REPLACE " " "?" pattern "${pattern}")
                        string(APPEND patterns "            ${pattern};\n")
                    endforeach()
                endforeach()
            endif()
        endforeach()
    endforeach()
    file(CONFIGURE OUTPUT "${file}" @ONLY CONTENT
"${version} {
    global:
        extern \"C++\" {
@patterns@        };
    local:
        *;
};
")
endfunction()
