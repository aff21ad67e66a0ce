#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "refhost/rtsp/message/RtspRequest.h"
#include "refhost/rtsp/message/RtspStatus.h"

namespace refhost
{

/// Push parser of a client's bytes: finds requests and interleaved frames (RFC 2326, sections 4, 6 and
/// 10.12).
///
///     reader.feed(bytes, count);
///     while ((item = reader.next(request)) != RequestReader::Item::none) …
///
/// Whole requests are parsed in place; only incomplete ones are copied, never more than the limits and one
/// feed() allow. Time is linear in the input, however it is cut. Lines may end with CR LF or LF; empty lines
/// before a request are skipped; a header line that starts with a blank continues the previous one. Responses
/// from the client are skipped: this server sends no requests.
///
/// Threads: one at a time.
class RequestReader
{
public:
    struct Limits
    {
        std::size_t headerCount = 64;
        std::size_t headerBytes = 16384;  ///< request line and headers, with their line ends
        std::size_t bodyBytes = 16384;
        /// Of one interleaved frame. RTCP and audio are far smaller; a longer frame is dropped as it arrives.
        std::size_t frameBytes = 8192;
        /// Whether the first message may be HTTP: its head is found, and nothing behind it is read.
        bool http = false;
    };

    enum class Item
    {
        none,      ///< more bytes are needed
        request,   ///< the request was filled in
        frame,     ///< see frame()
        http,      ///< see httpHead() and httpRest(); nothing more is read
        malformed  ///< see problem(); the request holds what was readable
    };

    /// One interleaved frame. Valid until the next operation.
    struct Frame
    {
        int channel = 0;
        const std::uint8_t* data = nullptr;
        std::size_t size = 0;
    };

    /// The defect of a message.
    struct Problem
    {
        RtspStatus status = rtspBadRequest;
        /// The start of the next message is unknown: answer and close the connection. Nothing more is read.
        bool fatal = false;
    };

    explicit RequestReader(const Limits& limits);

    /// Whether it is between two messages, the first one behind it: another reader with the same limits would
    /// continue as well.
    bool idle() const;

    /// Feeds received bytes. Requires: they stay valid until next() returns `none` or putBack() is called.
    void feed(const char* data, std::size_t size);

    /// Finds the next item.
    Item next(RtspRequest& request);

    const Frame& frame() const;
    const Problem& problem() const;

    /// The head of an HTTP request, with its empty line, and what was fed behind it. Valid until the next
    /// operation.
    std::string_view httpHead() const;
    std::string_view httpRest() const;

    /// Returns the last item to the input: next() finds it again. Copies every unused byte.
    void putBack();

    /// Copies every unused byte, for a caller that stops before next() returns `none`. Invalidates the last
    /// item.
    void keepRest();

    /// Bytes copied; 0 between two whole messages.
    std::size_t kept() const;

private:
    Item nextMessage(RtspRequest& request);
    Item nextFrame();
    bool dropLongFrame();
    bool findHeadEnd();
    bool parseHead(RtspRequest& request);
    bool parseRequestLine(std::string_view line, RtspRequest& request);
    bool parseHeaderLine(std::string_view line, RtspRequest& request);
    bool readContentLength(const RtspRequest& request);
    Item fail(RtspStatus status);
    Item wait();
    void advance(std::size_t size);

    const Limits limits_;
    std::string kept_;          // bytes of an incomplete item
    std::string_view input_;    // kept_, or the bytes fed last
    std::size_t position_ = 0;  // of the next item in input_
    std::size_t itemStart_ = 0;
    // Progress within the item at position_.
    std::size_t scanned_ = 0;  // bytes already searched for the end of the head
    std::size_t lineStart_ = 0;
    std::size_t lines_ = 0;
    std::size_t headSize_ = 0;  // 0: unknown yet
    std::size_t bodySize_ = 0;
    std::size_t dropping_ = 0;  // bytes left of a frame that is too long
    bool first_ = true;         // no message was found yet
    bool broken_ = false;
    Frame frame_;
    Problem problem_;
};

}  // namespace refhost
