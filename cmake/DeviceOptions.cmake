# Options for devices: small code, and the C++ library's binary interface of their SDK.
option(OV_SMALL "Optimise for size and leave out what nothing uses" OFF)
option(OV_OLD_STRING_ABI "Use the std::string of C++ libraries before GCC 5, as the device's SDK may do" OFF)
option(OV_STATIC_LIBSTDCXX "Bring the C++ library along inside the library, for a device that has none or an older one" OFF)

if(OV_SMALL)
    add_compile_options(-Os -ffunction-sections -fdata-sections)
    add_link_options(-Wl,--gc-sections)
endif()
if(OV_OLD_STRING_ABI)
    add_compile_definitions(_GLIBCXX_USE_CXX11_ABI=0)
endif()

# What of it concerns the library alone.
function(ov_set_up_for_device target)
    if(OV_SMALL)
        set_target_properties(${target} PROPERTIES INTERPROCEDURAL_OPTIMIZATION ON)
    endif()
    if(OV_STATIC_LIBSTDCXX)
        # The unwinder stays shared: exceptions travel to the host.
        target_link_options(${target} PRIVATE -static-libstdc++)
    endif()
endfunction()
