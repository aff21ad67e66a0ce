#pragma once
// Tested by tests/refhost/playback/RecordingDescriber_test.cpp, tests/refhost/playback/RecordedSource_test.cpp.

#include <gst/gst.h>

#include <memory>
#include <string>
#include <vector>

#include "hostapi/description/SubMediaInfo.h"
#include "refhost/media/AccessUnitBuilder.h"
#include "refhost/media/Codec.h"
#include "refhost/media/GstHandles.h"

namespace refhost
{

/// Packs the coded units of one track into access units of RTP packets, as a camera's stream does, but on the
/// calling thread: push() returns when everything is packed.
///
/// A parser and a payloader without a pipeline. Threads: one at a time.
class Packetiser
{
public:
    /// \param payloadSize  max. bytes of RTP payload in a packet
    /// \returns null with `error` set when GStreamer lacks an element
    static std::unique_ptr<Packetiser> make(Codec codec, int payloadSize, std::string& error);
    ~Packetiser();
    Packetiser(const Packetiser&) = delete;
    Packetiser& operator=(const Packetiser&) = delete;

    Codec codec() const
    {
        return codec_;
    }

    int payloadSize() const
    {
        return payloadSize_;
    }

    /// Packs the next coded unit; its PTS becomes the capture time of the result.
    /// \param caps         format of the unit; may change from unit to unit
    /// \param[in,out] out  access units are appended
    /// \returns false when the parser rejects the unit
    bool push(GstCaps* caps, GstValuePtr<GstBuffer> unit, std::vector<AccessUnitPtr>& out);

    /// Declares a discontinuity: the next unit does not follow the last one.
    void flush();

    /// Describes the track by the packets made so far.
    /// \returns false when they do not suffice
    bool describe(SubMediaInfo& out) const;

private:
    Packetiser(Codec codec, int payloadSize);
    bool open(std::string& error);
    void close();
    bool reopen();
    void pushSegment();
    static GstFlowReturn onPacket(GstPad* pad, GstObject* parent, GstBuffer* buffer);
    static GstFlowReturn onPackets(GstPad* pad, GstObject* parent, GstBufferList* list);
    static gboolean onEvent(GstPad* pad, GstObject* parent, GstEvent* event);
    void take(GstBuffer* packet);

    const Codec codec_;
    const int payloadSize_;
    AccessUnitBuilder builder_;
    GstObjectPtr<GstElement> chain_;      // parser and payloader
    GstObjectPtr<GstElement> payloader_;  // in the chain
    GstObjectPtr<GstPad> in_;
    GstObjectPtr<GstPad> out_;
    GstValuePtr<GstCaps> caps_;
    bool broken_ = false;  // a unit of these caps was rejected
    GstValuePtr<GstCaps> rtpCaps_;
    std::vector<AccessUnitPtr>* made_ = nullptr;  // during push()
};

}  // namespace refhost
