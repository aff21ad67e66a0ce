#pragma once
// Tested by tests/refhost/capture/CameraStates_test.cpp.

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "refhost/base/Mutex.h"
#include "refhost/base/Times.h"
#include "refhost/capture/CameraState.h"

namespace refhost
{

/// One stream of a camera, for those who watch over the server.
struct CameraStatus
{
    int camera = 0;
    int stream = 0;
    std::string title;  ///< the stream's name in the log: camera 2/0 "yard"
    CameraState state = CameraState::idle;
    WallTime since;                     ///< when it entered the state
    std::uint64_t starts = 0;           ///< tries to run the source, since the server started
    std::uint64_t failures = 0;         ///< tries that failed, likewise
    std::uint64_t failuresInState = 0;  ///< since the state was entered
    std::string lastError;  ///< of the last try that failed or fell silent; empty: none; free of credentials
    std::optional<WallTime> lastErrorAt;
};

/// The states of all streams. A change is published as the event "camera-state" too. \see ServerEvents
///
/// Threads: any. One lock of its own, taken when a state changes or a try ends, and never by media.
class CameraStates
{
public:
    using Key = std::pair<int, int>;  ///< camera and stream

    /// A stream's row, while it exists. Where two have the same key, as when a camera is replaced, the newer one counts.
    /// Threads: any, one at a time.
    class Row
    {
    public:
        /// \param states  outlives the row
        Row(CameraStates& states, const Key& key, std::string title);
        ~Row();
        Row(const Row&) = delete;
        Row& operator=(const Row&) = delete;

        /// The title that the next set() gives the row.
        void rename(const std::string& title)
        {
            title_ = title;
        }
        /// Replaces all but camera, stream and title.
        void set(CameraStatus status);

    private:
        CameraStates& states_;
        const Key key_;
        std::string title_;
        std::uint64_t number_ = 0;
    };

    /// The states of this process.
    static CameraStates& instance();

    CameraStates() = default;
    CameraStates(const CameraStates&) = delete;
    CameraStates& operator=(const CameraStates&) = delete;

    /// Every stream, by camera and stream.
    std::vector<CameraStatus> snapshot() const;
    /// \returns nothing for an unknown one
    std::optional<CameraStatus> find(int camera, int stream) const;

private:
    struct Entry
    {
        std::uint64_t number = 0;  ///< of the row
        CameraStatus status;
    };

    mutable Mutex mutex_;
    std::map<Key, Entry> entries_ OV_GUARDED_BY(mutex_);
    std::uint64_t lastNumber_ OV_GUARDED_BY(mutex_) = 0;
};

}  // namespace refhost
