#pragma once

#include <string>

#include "hostapi/description/GeneralSessionInfo.h"
#include "hostapi/description/MediaInfo.h"
#include "hostapi/description/RTPPacketInfo.h"
#include "hostapi/device/IConnection.h"
#include "support/SafePointer.h"
#include "tests/abi/Slot.h"

/// Drives a controller like a host that was built long ago: by the slots of the operations in the vtable and their
/// arguments, without today's headers.
class ControllerByPlace
{
public:
    using Text = std::string;

    /// \param controller  not owned
    explicit ControllerByPlace(void* controller) : object_(controller) {}

    int getMediaInfo(MediaInfo& out) const
    {
        return Slot<int(MediaInfo&)>(object_, 2)(out);
    }
    int getSessionInfo(GeneralSessionInfo& out) const
    {
        return Slot<int(GeneralSessionInfo&)>(object_, 3)(out);
    }
    int mediaInit() const
    {
        return Slot<int()>(object_, 4)();
    }
    int setup(const Text& session, const Text& track, const SafePointer<IConnection>& connection) const
    {
        return Slot<int(const Text&, const Text&, const SafePointer<IConnection>&)>(object_, 5)(
            session, track, connection);
    }
    int play(const Text& session, const Text& track) const
    {
        return Method(object_, 6)(session, track);
    }
    int setPlayRange(const Text& session, const Text& track, double start, double end, int kind,
                     bool flag) const
    {
        return Slot<int(const Text&, const Text&, double, double, int, bool)>(object_, 7)(
            session, track, start, end, kind, flag);
    }
    int getCurPlayRange(const Text& session, const Text& track, double& start, double& end) const
    {
        return Slot<int(const Text&, const Text&, double&, double&)>(object_, 8)(session, track, start, end);
    }
    int correctPlayRange(const Text& session, const Text& track, double start, double end, double& outStart,
                         double& outEnd) const
    {
        return Slot<int(const Text&, const Text&, double, double, double&, double&)>(object_, 9)(
            session, track, start, end, outStart, outEnd);
    }
    int getCurRTPPacketInfo(const Text& session, const Text& track, RTPPacketInfo& out) const
    {
        return Slot<int(const Text&, const Text&, RTPPacketInfo&)>(object_, 10)(session, track, out);
    }
    int pause(const Text& session, const Text& track) const
    {
        return Method(object_, 11)(session, track);
    }
    int setPauseRange(const Text& session, const Text& track, double position) const
    {
        return Slot<int(const Text&, const Text&, double)>(object_, 12)(session, track, position);
    }
    int stop(const Text& session, const Text& track) const
    {
        return Method(object_, 13)(session, track);
    }
    int getConnetionState(const Text& session, const Text& track, bool& connected) const
    {
        return Slot<int(Text, Text, bool&)>(object_, 14)(session, track, connected);
    }
    int setSpeed(const Text& session, const Text& track, double scale, double speed) const
    {
        return Slot<int(const Text&, const Text&, double, double)>(object_, 15)(session, track, scale, speed);
    }
    void setRTCPFrequence(const Text& session, const Text& track, int frequency) const
    {
        Slot<void(const Text&, const Text&, int)>(object_, 16)(session, track, frequency);
    }
    int getTrackSSRC(const Text& session, const Text& track, int& ssrc) const
    {
        return Slot<int(const Text&, const Text&, int&)>(object_, 17)(session, track, ssrc);
    }

private:
    using Method = Slot<int(const Text&, const Text&)>;

    void* object_;
};
