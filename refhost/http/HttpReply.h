#pragma once
// Tested by tests/refhost/http/HttpReply_test.cpp.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "refhost/http/BodySource.h"

namespace refhost
{

/// The reply to a request: status, header fields, and a body that is complete or made while it is sent. A value type.
struct HttpReply
{
    static constexpr int switchingProtocols = 101;

    /// A body of a type.
    static HttpReply of(std::string_view contentType, std::string body);
    /// \param document  the text of a JSON document
    static HttpReply json(std::string document, int status = 200);
    /// An error as a JSON document (RFC 9457), whose title is the status' reason.
    /// \param detail  one sentence for people
    static HttpReply problem(int status, std::string_view detail);
    /// A reply without a body.
    static HttpReply empty(int status = 204);
    /// A body that is made while it is sent.
    /// \param length  of the body in bytes; nothing: not known
    static HttpReply stream(std::string_view contentType, std::shared_ptr<BodySource> source,
                            std::optional<std::uint64_t> length = std::nullopt);
    /// Switches to WebSocket: from then on the connection is the source's, both ways (BodySource::receive()).
    /// \param accept  the value of Sec-WebSocket-Accept
    static HttpReply webSocket(std::string_view accept, std::shared_ptr<BodySource> source);

    /// Adds a header field. Control characters in `value` become blanks.
    HttpReply& with(std::string_view name, std::string_view value);
    /// The value of the first field of that name in any case; empty when there is none.
    std::string_view field(std::string_view name) const;

    /// The status line and the header fields with the empty line at their end: `fields`, those of every reply where they
    /// are not among them (Date, Server, Cache-Control, and those that keep browsers from guessing), and those of the
    /// body and connection.
    /// \param http10     the client speaks HTTP/1.0, and does not understand chunks
    /// \param keepAlive  the connection stays open
    std::string headText(bool http10, bool keepAlive) const;
    /// Whether the body is sent in chunks to a client of HTTP/1.1: its length is not known.
    bool chunked() const
    {
        return source != nullptr && !length && !switches();
    }
    /// Whether the connection changes its protocol.
    bool switches() const
    {
        return status == switchingProtocols;
    }
    /// Whether there is no body at all whatever the request was (1xx, 204, 304).
    bool bodiless() const;

    int status = 200;
    std::vector<std::pair<std::string, std::string>> fields;
    std::string body;
    std::shared_ptr<const std::string> shared;  ///< the body, where it is not `body`: one that several get
    std::shared_ptr<BodySource> source;         ///< not null: the body, instead of the two
    std::optional<std::uint64_t> length;        ///< of `source`'s bytes
};

}  // namespace refhost
