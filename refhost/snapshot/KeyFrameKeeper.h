#pragma once
// Tested by tests/refhost/snapshot/SnapshotService_test.cpp.

#include <chrono>
#include <cstdint>
#include <memory>

#include "refhost/base/ConditionVariable.h"
#include "refhost/base/Mutex.h"
#include "refhost/media/EncodedUnit.h"
#include "refhost/media/StreamSource.h"

namespace refhost
{

/// Keeps the last key frame of a stream while somebody wants snapshots of it; the source runs meanwhile.
///
/// On the stream's thread it costs one comparison for each frame and one pointer for each key frame. Threads:
/// any.
class KeyFrameKeeper : public EncodedUnitSink
{
public:
    /// A key frame with its number.
    struct Kept
    {
        EncodedUnitPtr unit;  ///< null: none
        std::uint64_t number = 0;
    };

    /// Starts to keep. \param source  not null
    static std::shared_ptr<KeyFrameKeeper> start(std::shared_ptr<StreamSource> source);
    /// Ends it, and lets the source stop. Call it once.
    void stop();

    /// Waits for a key frame where there is none yet.
    Kept await(std::chrono::milliseconds max);

    const std::shared_ptr<StreamSource>& source() const
    {
        return source_;
    }

    /// Held while a snapshot is made, so that each is made once.
    Mutex& making()
    {
        return making_;
    }

    void onEncodedUnit(const EncodedUnitPtr& unit) override;
    void onDiscontinuity() override;

private:
    explicit KeyFrameKeeper(std::shared_ptr<StreamSource> source) : source_(std::move(source)) {}

    const std::shared_ptr<StreamSource> source_;
    Mutex making_;
    Mutex mutex_;
    ConditionVariable arrived_;
    Kept kept_ OV_GUARDED_BY(mutex_);
};

}  // namespace refhost
