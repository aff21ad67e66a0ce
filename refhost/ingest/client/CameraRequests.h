#pragma once
// Tested by tests/refhost/ingest/client/RtspClientLogin_test.cpp, tests/refhost/ingest/client/RtspClientQuirks_test.cpp.

#include <cstddef>
#include <deque>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "refhost/capture/CameraLogin.h"
#include "refhost/capture/CameraMessages.h"

namespace refhost
{

/// The requests of one RTSP connection to a camera: numbers them, logs in, and finds the request of an
/// answer.
///
/// A camera that leaves CSeq out, or writes a wrong one, answers in order. Threads: one at a time.
class CameraRequests
{
public:
    using Headers = std::vector<std::pair<std::string, std::string>>;

    /// Unanswered ones; the oldest are given up beyond it.
    static constexpr std::size_t maxPending = 8;

    enum class Answer
    {
        unexpected,  ///< to nothing that is waited for
        again,       ///< the camera demands a login that it can have: send what again() makes
        final        ///< to the request that answered() names
    };

    /// \param login    for this connection's host alone
    /// \param carried  the login has met a demand on an earlier connection
    explicit CameraRequests(CameraLogin login, bool carried = false);

    /// \returns the text of a new request
    std::string make(std::string method, std::string uri, Headers headers);

    /// Finds what an answer is to.
    Answer take(const CameraMessage& answer);

    /// The method that the last final answer was to.
    const std::string& answered() const
    {
        return request_.method;
    }
    /// The request again, with a login. Requires: take() said `again` just before.
    std::string again();

    /// Waits for none of the answers any more.
    void giveUp();

    /// The answer to a request of the camera's own: all that ask for nothing are granted.
    static std::string answerTo(std::string_view method, const CameraMessage& request);

    /// What logs in, with the demands that it has met.
    const CameraLogin& login() const
    {
        return login_;
    }

private:
    struct Request
    {
        std::string method;
        std::string uri;
        Headers headers;
        unsigned sequence = 0;
        bool loggedIn = false;  ///< it was sent with a login
        bool retried = false;   ///< that was refused once
    };

    std::string write(Request request);
    bool mayLogIn(const CameraMessage& answer);

    CameraLogin login_;
    bool carried_;
    bool accepted_ = false;  ///< a login was
    bool gaveUp_ = false;    ///< some request
    unsigned sequence_ = 0;
    std::deque<Request> pending_;
    Request request_;  ///< of the last answer
};

}  // namespace refhost
