#pragma once
// Tested by tests/refhost/http/PageRoutes_test.cpp.

#include "refhost/http/HttpRouter.h"

namespace refhost
{

/// The web page: its files are part of the program, so that there is nothing to install and nothing to read from disk.
/// They are served to everybody; what they show comes from routes with their own rights.
class PageRoutes
{
public:
    static void add(HttpRouter& router);
};

}  // namespace refhost
