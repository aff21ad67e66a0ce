# What makes faults in what is shipped harder to exploit: checked library calls, stack protection, position-independent
# executables, and tables of the linker that are read-only once the program runs. tests/packaging/check_hardening.py reads
# it back from the binaries.
option(OV_HARDEN "Harden what is built, as the packages are" OFF)
if(NOT OV_HARDEN)
    return()
endif()

include(CheckCXXCompilerFlag)
include(CheckPIESupported)
check_pie_supported()
set(hardening -fstack-protector-strong -fstack-clash-protection)
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|amd64|AMD64|i[3-6]86)$")
    list(APPEND hardening -fcf-protection)
endif()
foreach(flag IN LISTS hardening)
    string(MAKE_C_IDENTIFIER "OV_HAS${flag}" supported)
    check_cxx_compiler_flag("-Werror ${flag}" ${supported})
    if(${supported})
        add_compile_options(${flag})
    endif()
endforeach()
# Compilers may predefine another value.
add_compile_options(-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
add_link_options(-Wl,-z,relro,-z,now)
