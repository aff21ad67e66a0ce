# ov_write_symbol_map(<file> <version> <folder>…): a linker's version script that exports what a host may bind to and
# nothing else: the operations, tables and type information of every class that a header of the folders marks
# OV_EXPORT, where it is a template or the source file beside it defines it. Inline classes and everything of the C++
# library stay inside.
function(ov_write_symbol_map file version)
    set(classes "")
    set(templates "")
    foreach(folder ${ARGN})
        file(GLOB headers CONFIGURE_DEPENDS "${CMAKE_CURRENT_SOURCE_DIR}/${folder}/*.h")
        foreach(header ${headers})
            set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${header}")
            string(REGEX REPLACE "\\.h$" ".cpp" source "${header}")
            file(STRINGS "${header}" lines REGEX "^(template |class OV_EXPORT )")
            set(before "")
            foreach(line ${lines})
                if(line MATCHES "^class OV_EXPORT ([A-Za-z0-9_]+)")
                    set(class "${CMAKE_MATCH_1}")
                    if(before MATCHES "^template ")
                        list(APPEND templates "${class}")
                    elseif(EXISTS "${source}")
                        list(APPEND classes "${class}")
                    endif()
                endif()
                set(before "${line}")
            endforeach()
        endforeach()
    endforeach()
    list(REMOVE_DUPLICATES templates)

    set(patterns "        extern \"C++\" {\n")
    foreach(class ${classes})
        foreach(pattern "${class}::*" "vtable for ${class}" "typeinfo for ${class}" "typeinfo name for ${class}")
            string(REPLACE " " "?" pattern "${pattern}")
            string(APPEND patterns "            ${pattern};\n")
        endforeach()
    endforeach()
    string(APPEND patterns "        };\n")
    # Mangled names, because only these distinguish the constructors and destructors of complete objects from those that
    # only a derived class would use: the latter, a fifth of all names, stay inside.
    foreach(template ${templates})
        string(LENGTH "${template}" length)
        set(name "${length}${template}I")
        foreach(pattern "_ZN${name}*E[CD][01][EI]*" "_ZN${name}*E[a-z0-9]*E*" "_ZNK${name}*E[a-z0-9]*E*" "_ZT[VIS]${name}*")
            string(APPEND patterns "        ${pattern};\n")
        endforeach()
    endforeach()
    file(CONFIGURE OUTPUT "${file}" @ONLY CONTENT
"${version} {
    global:
@patterns@    local:
        *;
};
")
endfunction()
