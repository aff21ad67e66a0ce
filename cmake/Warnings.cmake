# Warnings that every target of ours is compiled with.
add_library(ov_warnings INTERFACE)
target_compile_options(ov_warnings INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual -Wcast-align -Wconversion
    -Wno-sign-conversion -Wformat=2)
if(CMAKE_SYSTEM_PROCESSOR STREQUAL "arm")
    # GCC notes what is passed otherwise than by GCC 6, as if one of our libraries was older.
    target_compile_options(ov_warnings INTERFACE -Wno-psabi)
endif()
if(OV_WARNINGS_AS_ERRORS)
    target_compile_options(ov_warnings INTERFACE -Werror)
endif()
if(OV_SANITIZE)
    # GCC 12 takes std::regex and std::function for uninitialized once they are instrumented.
    target_compile_options(ov_warnings INTERFACE -Wno-maybe-uninitialized)
endif()
