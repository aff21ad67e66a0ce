#pragma once

#include <cstdint>
#include <ctime>
#include <string>
#include <string_view>

#include "refhost/rtsp/message/RtspStatus.h"

namespace refhost
{

/// Writes one response after the other into a buffer of its own: status line, CSeq, Date and Server, the
/// caller's headers, the body.
///
///     writer.start(rtspOk, cseq);
///     writer.header("Session", id);
///     connection.sendResponse(writer.finish());
///
/// Threads: one at a time.
class ResponseWriter
{
public:
    /// Starts a new response and discards the previous one.
    /// \param cseq  the request's number; no CSeq line when empty
    void start(RtspStatus status, std::string_view cseq);

    /// Adds a header line. Neither text may hold a line end.
    void header(std::string_view name, std::string_view value);

    /// Starts a header line, whose value the caller appends to text() before endHeader().
    void startHeader(std::string_view name);
    std::string& text();
    void endHeader();

    /// Ends a response without a body.
    /// \returns the whole response; valid until the next start()
    std::string_view finish();
    /// Ends a response with a body and its Content-Type and Content-Length.
    std::string_view finish(std::string_view contentType, std::string_view body);

private:
    void refreshDate();

    std::string text_;
    std::time_t dateTime_ = 0;
    std::string date_;  // "Date: …\r\nServer: …\r\n" of dateTime_
};

}  // namespace refhost
