#pragma once
// Tested by tests/refhost/http/HttpGuard_test.cpp.

#include "refhost/access/Right.h"

namespace refhost
{

/// Who may use a route. A value type.
struct HttpAccess
{
    enum class Kind
    {
        open,    ///< everybody; users that log in are known to the handler
        shared,  ///< everybody who may do anything at all: the handler shows what the user may see
        camera,  ///< who has the right to the camera that the path's part "camera" names
        server   ///< who has the right to every camera
    };

    static HttpAccess open()
    {
        return {Kind::open, Right::live};
    }
    static HttpAccess shared()
    {
        return {Kind::shared, Right::live};
    }
    static HttpAccess camera(Right right)
    {
        return {Kind::camera, right};
    }
    static HttpAccess server(Right right)
    {
        return {Kind::server, right};
    }

    Kind kind;
    Right right;
};

}  // namespace refhost
