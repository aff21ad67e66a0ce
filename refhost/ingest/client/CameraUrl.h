#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace refhost
{

/// Where a camera is, and how requests name what it has. Credentials stand apart from everything that is sent or
/// logged.
struct CameraUrl
{
    static constexpr std::size_t maxSize = 2048;
    static constexpr int defaultPort = 554;
    static constexpr int defaultTlsPort = 322;

    bool tls = false;  ///< rtsps
    std::string host;  ///< without brackets
    int port = defaultPort;
    std::string target;    ///< path and query, from its '/' on; blanks and control characters are escaped
    std::string user;      ///< empty without login; not escaped any more
    std::string password;  ///< the same

    /// Reads rtsp:// or rtsps://[user[:password]@]host[:port][/path][?query]. What ends an authority elsewhere may stand in a
    /// password as it is.
    /// \returns nothing for another scheme, without host, and beyond maxSize
    static std::optional<CameraUrl> parse(std::string_view text);

    /// "rtsp://host[:port]" or the same with rtsps, the port where it is not the default one: what every request's URL starts with.
    std::string authority() const;

    /// The whole URL as requests write it, without credentials.
    std::string text() const
    {
        return authority() + target;
    }

    /// Where a redirect leads, by its Location header (RFC 2326, sections 11 and 12.25): an absolute URL, or a
    /// path on the same host. It has no credentials, whatever it says. It is encrypted if and only if this one is.
    /// \returns nothing when it cannot be followed
    std::optional<CameraUrl> redirected(std::string_view location) const;

    /// Whether both name the same host and port, and the same scheme.
    bool sameServer(const CameraUrl& other) const;

    /// The target that a Content-Base or Content-Location header names, or this one where it is neither a URL nor
    /// a path. A host that it names is left out: cameras name what they believe to be called.
    std::string baseTarget(std::string_view header) const;

    /// The target of a control attribute (RFC 2326, section C.1.1): appended to `base`, as clients commonly do,
    /// behind a query too; an absolute one by itself, without its host.
    static std::string controlTarget(const std::string& base, std::string_view control);
};

}  // namespace refhost
