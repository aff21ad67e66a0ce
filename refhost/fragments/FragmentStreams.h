#pragma once
// Tested by tests/refhost/fragments/FragmentStreams_test.cpp.

#include <cstdint>
#include <functional>
#include <memory>
#include <unordered_map>

#include "refhost/base/HostClock.h"
#include "refhost/base/Mutex.h"
#include "refhost/fragments/BrowserAudio.h"
#include "refhost/fragments/FragmentStream.h"
#include "refhost/media/StreamSource.h"
#include "refhost/threads/WorkPool.h"

namespace refhost
{

/// A camera stream that is tapped for fragments. It stays tapped without viewers, so that the next one starts from
/// the kept key frame; the source itself runs while somebody views. Threads: any.
class TappedStream
{
public:
    /// \param pool  not null; transcodes audio, and is closed by its owner
    TappedStream(const std::shared_ptr<StreamSource>& source, const HostClock& clock,
                 std::shared_ptr<WorkPool> pool);
    ~TappedStream();
    TappedStream(const TappedStream&) = delete;
    TappedStream& operator=(const TappedStream&) = delete;

    /// The source; null once it is gone.
    std::shared_ptr<StreamSource> source() const
    {
        return source_.lock();
    }

    FragmentStream& fragments()
    {
        return *fragments_;
    }

    /// Viewers of the audio add themselves.
    BrowserAudio& audio()
    {
        return *audio_;
    }

    /// Declares to the fragments which tracks the source has, if it knows by now.
    /// \returns whether the source can be opened, or that is not known yet
    bool describe();

private:
    const std::weak_ptr<StreamSource> source_;
    const std::shared_ptr<FragmentStream> fragments_;
    const std::shared_ptr<BrowserAudio> audio_;
};

/// One viewer of a stream's fragments: keeps the source running while it lives.
///
/// Threads: one at a time; `wake` is called by the source's threads.
class FragmentViewer
{
public:
    /// \param stream  not null
    /// \param audio   whether the viewer wants audio
    /// \param wake    called when there may be something to read; must neither block nor call the viewer
    FragmentViewer(std::shared_ptr<TappedStream> stream, bool audio, std::function<void()> wake);
    ~FragmentViewer();
    FragmentViewer(const FragmentViewer&) = delete;
    FragmentViewer& operator=(const FragmentViewer&) = delete;

    /// What is next for the viewer.
    FragmentStream::Next read();

private:
    const std::shared_ptr<TappedStream> stream_;
    const std::shared_ptr<StreamSource> source_;  // null when it is gone
    FragmentStream::Cursor cursor_;
    bool described_ = false;
    std::uint64_t subscription_ = 0;
};

/// The streams that were viewed as fragments, one object each, so that their viewers share all fragments. Threads: any.
class FragmentStreams
{
public:
    /// \param clock  outlives this and the streams
    explicit FragmentStreams(const HostClock& clock);
    ~FragmentStreams();
    FragmentStreams(const FragmentStreams&) = delete;
    FragmentStreams& operator=(const FragmentStreams&) = delete;

    /// \returns null when no such stream is configured
    std::shared_ptr<TappedStream> find(int cameraId, int streamId);

private:
    const HostClock& clock_;
    const std::shared_ptr<WorkPool> pool_;
    Mutex mutex_;
    std::unordered_map<std::uint64_t, std::shared_ptr<TappedStream>> streams_ OV_GUARDED_BY(mutex_);
};

}  // namespace refhost
