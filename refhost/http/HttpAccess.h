#pragma once
// Tested by tests/refhost/http/HttpGuard_test.cpp.

#include <string_view>

#include "refhost/access/Right.h"
#include "refhost/http/HttpTarget.h"

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
    /// As camera(), but a request with the parameter needs the right `recorded`.
    static HttpAccess cameraOr(Right right, std::string_view parameter, Right recorded)
    {
        return {Kind::camera, right, parameter, recorded};
    }
    static HttpAccess server(Right right)
    {
        return {Kind::server, right};
    }

    /// The right that a request needs.
    Right rightFor(const HttpTarget& target) const
    {
        return !parameter.empty() && target.parameter(parameter) ? recorded : right;
    }

    Kind kind;
    Right right;
    std::string_view parameter{};  ///< of the query: with it, `recorded` is needed instead; empty: none
    Right recorded = Right::playback;
};

}  // namespace refhost
