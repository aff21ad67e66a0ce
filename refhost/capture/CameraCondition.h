#pragma once
// Tested by tests/refhost/capture/CameraCondition_test.cpp.

#include <string>
#include <vector>

#include "refhost/base/Times.h"
#include "refhost/capture/CameraState.h"
#include "refhost/capture/CameraStates.h"
#include "refhost/capture/SourceFailure.h"

namespace refhost
{

/// The state of one stream: what its owner reports of the source becomes a state, a row of CameraStates, and one line of
/// the log for each change. A try that ends as the one before is counted, not logged; the count is in the line of the
/// next change.
///
/// Threads: one at a time.
class CameraCondition
{
public:
    /// Causes that are logged while a state lasts; a camera that keeps failing for other reasons does not flood the log.
    static constexpr std::size_t maxCauses = 4;

    /// \param states  outlives this
    CameraCondition(CameraStates& states, const CameraStates::Key& key, std::string title);

    /// The stream has another name now.
    void rename(const std::string& title);

    /// A try starts.
    void onStart();
    /// A try goes on by other means, which is not a failure.
    void onOtherMeans(const SourceFailure& why);
    /// Frames come.
    void onFrames();
    /// No frame came for `length`.
    void onSilence(Duration length);
    void onFailure(const SourceFailure& why);
    /// The source was stopped because nobody needs it.
    void onUnneeded();

    CameraState state() const
    {
        return state_.state();
    }

private:
    void enter(CameraState next);
    bool isNewCause(const std::string& text);
    std::string pastText() const;

    std::string title_;
    CameraStates::Row row_;
    StateMachine<CameraState> state_{CameraState::idle};
    CameraStatus status_;
    MonotonicTime since_;
    std::vector<std::string> causes_;  ///< that were logged in this state
};

}  // namespace refhost
