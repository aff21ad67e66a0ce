#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "refhost/rtsp/message/RtspRequest.h"
#include "refhost/rtsp/message/RtspStatus.h"

namespace refhost
{

/// Push parser of what a client sends: bytes in, requests and interleaved frames out (RFC 2326, sections 4,
/// 6 and 10.12).
///
///     reader.feed(bytes, count);
///     while ((item = reader.next(request)) != RequestReader::Item::none) …
///
/// Whole requests are parsed where the fed bytes stand; only what is cut off by the end of the bytes is
/// copied, and never more than the limits and one feed() allow. Every byte is looked at a fixed number of
/// times, however the input is cut. Lines may end with CR LF or LF; empty lines before a request are skipped;
/// a header line that starts with a blank goes on from the one before. Responses from the client are skipped:
/// this server asks nothing.
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
        /// Of one interleaved frame. RTCP and audio are far smaller; a longer frame is dropped as it comes.
        std::size_t frameBytes = 8192;
    };

    enum class Item
    {
        none,      ///< more bytes are needed
        request,   ///< the request was filled in
        frame,     ///< see frame()
        malformed  ///< see problem(); the request holds what could be read of it
    };

    /// One interleaved frame. Valid until the next operation.
    struct Frame
    {
        int channel = 0;
        const std::uint8_t* data = nullptr;
        std::size_t size = 0;
    };

    /// What is wrong with a message.
    struct Problem
    {
        RtspStatus status = rtspBadRequest;
        /// Where the next message starts is not known: answer, and end the connection. Nothing more is read.
        bool fatal = false;
    };

    explicit RequestReader(const Limits& limits);

    /// Gives the reader what was received. The bytes must stay where they are until next() returned `none` or
    /// putBack() was called.
    void feed(const char* data, std::size_t size);

    /// Goes on to the next item.
    Item next(RtspRequest& request);

    const Frame& frame() const;
    const Problem& problem() const;

    /// Takes the last item back: next() finds it again. Keeps a copy of every byte that was not used up.
    void putBack();

    /// Keeps a copy of every byte that was not used up, for a caller that stops before next() returned
    /// `none`. The last item is not valid any more.
    void keepRest();

    /// How many bytes the reader keeps by itself; 0 between two whole messages.
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
    std::string kept_;          // bytes of an item that is not whole yet
    std::string_view input_;    // kept_, or the bytes fed last
    std::size_t position_ = 0;  // of the next item in input_
    std::size_t itemStart_ = 0;
    // Progress within the item at position_.
    std::size_t scanned_ = 0;  // bytes already searched for the end of the head
    std::size_t lineStart_ = 0;
    std::size_t lines_ = 0;
    std::size_t headSize_ = 0;  // 0: not known yet
    std::size_t bodySize_ = 0;
    std::size_t dropping_ = 0;  // bytes to come of a frame that is too long
    bool broken_ = false;
    Frame frame_;
    Problem problem_;
};

}  // namespace refhost
