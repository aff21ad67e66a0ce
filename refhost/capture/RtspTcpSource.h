#pragma once
// Tested by tests/refhost/ingest/CameraRelay_test.cpp.

#include <gst/app/gstappsrc.h>
#include <gst/rtsp/gstrtspurl.h>
#include <gst/sdp/gstsdpmessage.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "refhost/base/Mutex.h"
#include "refhost/capture/CameraConversation.h"
#include "refhost/capture/DecodeStage.h"
#include "refhost/capture/MediaSource.h"
#include "refhost/capture/SourceClock.h"
#include "refhost/rtp/RtcpWriter.h"

namespace refhost
{

/// An RTSP camera by its rtsp:// URL, with its media interleaved in one TCP connection.
///
/// A thread of its own talks to the camera and passes each track's RTP packets, with times of SourceClock, to
/// a GStreamer source. The size of all input from the camera is bounded before it is parsed.
class RtspTcpSource : public MediaSource
{
public:
    RtspTcpSource(const StreamConfig& config, MediaSink& sink);
    ~RtspTcpSource() override;

    bool build(GstBin* pipeline, std::string& error) override;
    void stop() override;

private:
    struct Track
    {
        bool video = false;
        std::string control;  ///< absolute URL
        std::optional<Codec> codec;
        int payloadType = 0;
        int clockRate = 0;
        int channel = 0;  ///< of RTP; RTCP has the next
        GstValuePtr<GstCaps> caps;
        std::shared_ptr<SourceClock> clock;
        GstAppSrc* entry = nullptr;  ///< owned by the pipeline
        std::unique_ptr<DecodeStage> decoder;
        std::uint32_t ssrc = 0;
        std::uint16_t sequence = 0;
        std::uint32_t cycles = 0;
        bool started = false;
        bool reported = false;  ///< a sender report came
    };

    void run();
    bool open(std::string& error);
    bool openConversation(const std::string& url, std::string& error);
    bool ask(const std::string& method, const std::string& uri, const CameraConversation::Headers& headers,
             CameraMessage& answer, std::string& error);
    bool describe(std::string& error);
    bool readDescription(const std::string& text, const std::string& base, std::string& error);
    void addTrack(const GstSDPMedia& media, const std::string& base);
    bool setUp(Track& track, std::string& error);
    void partComplete();
    bool addEntry(Track& track, std::string& error);
    bool play(std::string& error);
    bool keepAlive(std::string& error);

    void onPacket(int channel, const std::uint8_t* data, std::size_t size);
    void onMedia(Track& track, const std::uint8_t* data, std::size_t size);
    void onReports(Track& track, const std::uint8_t* data, std::size_t size);
    bool sendReceiverReports(std::string& error);
    /// On the pipeline's running time.
    Duration now() const;

    const StreamConfig config_;
    MediaSink& sink_;
    GstBin* pipeline_ = nullptr;
    CameraConversation conversation_;
    const RtcpWriter::Name name_;
    std::thread thread_;

    // The thread's own.
    std::string uri_;  ///< of the presentation
    std::string user_;
    std::string password_;
    std::string session_;  ///< empty before the first SETUP
    std::chrono::seconds sessionTimeout_{60};
    std::vector<std::unique_ptr<Track>> tracks_;
    bool bye_ = false;
    bool refused_ = false;  ///< it may work over another transport
    std::size_t openParts_ = 1;
    Mutex partsMutex_;
};

}  // namespace refhost
