#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace refhost
{

/// The parts of a request's URL.
///
///     rtsp://user@host:554/orv/live/1/0/trackID=1?x=y
///       base          rtsp://user@host:554/orv/live/1/0    (as written, but for user information)
///       presentation  orv/live/1/0                         (percent-decoded)
///       track         trackID=1                            (percent-decoded; empty for the presentation)
///
/// There may be any number of slashes at the end of the path and between presentation and track. A track that a
/// client appended to the query is taken from there.
struct RtspUrl
{
    /// True for "*": the request is about the server.
    bool server = false;
    std::string base;
    std::string presentation;
    std::string track;
    /// Behind the question mark, as written; without the track.
    std::string query;

    /// \param text  "*", an absolute URL of the schemes rtsp, rtspu and rtsps, or a path that starts with '/'
    /// \returns nothing when the text is none of these, or has a bad percent code or an encoded control
    ///          character
    static std::optional<RtspUrl> parse(std::string_view text);

    /// Whether a Digest response for `digestUri` is good in a request for `requestUri`: clients use the request's
    /// URL, or the presentation's in requests for its tracks.
    static bool authorizes(std::string_view requestUri, std::string_view digestUri);

    /// Whether the query has the parameter with the value.
    bool has(std::string_view parameter, std::string_view value) const;

    /// Makes `base` rtsps:// where it is rtsp://.
    void setEncrypted();
};

}  // namespace refhost
