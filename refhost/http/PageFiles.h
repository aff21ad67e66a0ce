#pragma once
// Tested by tests/refhost/http/PageRoutes_test.cpp.

#include <cstddef>
#include <string_view>

namespace refhost
{

/// A file of the web page, as the build made it part of the program.
struct PageFile
{
    std::string_view path;  ///< below /, such as "js/app.js"
    std::string_view contents;
};

/// All of them; `count` is set. The array is made by cmake/embed-files.cmake.
const PageFile* pageFiles(std::size_t& count);

}  // namespace refhost
