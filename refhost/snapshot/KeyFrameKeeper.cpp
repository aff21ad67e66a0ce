#include "refhost/snapshot/KeyFrameKeeper.h"

#include <atomic>

namespace refhost
{

std::shared_ptr<KeyFrameKeeper> KeyFrameKeeper::start(std::shared_ptr<StreamSource> source)
{
    std::shared_ptr<KeyFrameKeeper> keeper(new KeyFrameKeeper(std::move(source)));
    keeper->source_->attachMedia(keeper);
    keeper->source_->acquire();
    keeper->source_->requestKeyFrame();
    return keeper;
}

void KeyFrameKeeper::stop()
{
    source_->detachMedia(this);
    source_->release();
}

KeyFrameKeeper::Kept KeyFrameKeeper::await(std::chrono::milliseconds max)
{
    const auto deadline = std::chrono::steady_clock::now() + max;
    const MutexLock guard(mutex_);
    while (!kept_.unit && arrived_.waitUntil(mutex_, deadline))
    {
    }
    return kept_;
}

void KeyFrameKeeper::onEncodedUnit(const EncodedUnitPtr& unit)
{
    // Of all streams, so that no two frames have one number.
    static std::atomic<std::uint64_t> frames{0};
    if (!unit->keyFrame || unit->damaged || !isVideo(unit->format->codec))
    {
        return;
    }
    {
        const MutexLock guard(mutex_);
        kept_ = {unit, ++frames};
    }
    arrived_.notifyAll();
}

void KeyFrameKeeper::onDiscontinuity()
{
    const MutexLock guard(mutex_);
    kept_ = {};
}

}  // namespace refhost
