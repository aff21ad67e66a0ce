#include "refhost/http/PageRoutes.h"

#include <openssl/evp.h>

#include <array>
#include <string>
#include <utility>

#include "refhost/base/Base64.h"
#include "refhost/http/PageFiles.h"

namespace refhost
{
namespace
{

constexpr int notModified = 304;

/// Nothing from elsewhere, no inline scripts and styles, no frames; media come from this page's own buffers.
constexpr std::string_view policy =
    "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' blob:; media-src 'self' blob:; "
    "connect-src 'self'; form-action 'self'; base-uri 'none'; frame-ancestors 'none'";

std::string_view typeOf(std::string_view path)
{
    constexpr std::array<std::pair<std::string_view, std::string_view>, 4> types{
        {{".html", "text/html; charset=utf-8"},
         {".css", "text/css; charset=utf-8"},
         {".js", "text/javascript; charset=utf-8"},
         {".svg", "image/svg+xml"}}};
    for (const auto& [end, type] : types)
    {
        if (path.size() > end.size() && path.substr(path.size() - end.size()) == end)
        {
            return type;
        }
    }
    return "application/octet-stream";
}

std::string tagOf(std::string_view contents)
{
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    std::size_t size = 0;
    EVP_Q_digest(nullptr, "SHA256", nullptr, contents.data(), contents.size(), digest.data(), &size);
    return "\"" + base64Of(digest.data(), 12) + "\"";
}

}  // namespace

void PageRoutes::add(HttpRouter& router)
{
    std::size_t count = 0;
    const PageFile* const files = pageFiles(count);
    for (const PageFile* file = files; file != files + count; ++file)
    {
        const auto serve = [file, tag = tagOf(file->contents)](const HttpRequest& request)
        {
            HttpReply reply;
            if (request.head.field("If-None-Match") == tag)
            {
                reply = HttpReply::empty(notModified);
            }
            else
            {
                reply = HttpReply::of(typeOf(file->path), std::string(file->contents));
            }
            reply.with("ETag", tag).with("Cache-Control", "no-cache").with("Content-Security-Policy", policy);
            return reply;
        };
        const std::string path(file->path);
        router.add({"GET", "/" + path, HttpAccess::open(), serve});
        if (path == "index.html")
        {
            router.add({"GET", "/", HttpAccess::open(), serve});
        }
    }
}

}  // namespace refhost
