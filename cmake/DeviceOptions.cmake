# How a device wants its code: small, and with its own SDK's binary interface of the C++ library.
option(OV_SMALL "Optimise for size and leave out what nothing uses" OFF)
option(OV_OLD_STRING_ABI "Use the std::string of C++ libraries before GCC 5; a device SDK may want it" OFF)
option(OV_STATIC_LIBSTDCXX "Link the C++ library into the library; its exceptions stay within" OFF)

if(OV_SMALL)
    add_compile_options(-Os -ffunction-sections -fdata-sections)
    add_link_options(-Wl,--gc-sections)
endif()
if(OV_OLD_STRING_ABI)
    add_compile_definitions(_GLIBCXX_USE_CXX11_ABI=0)
endif()
