#pragma once

#include <cstddef>
#include <cstdint>

#include "hostapi/base/HostExport.h"
#include "hostapi/device/DeviceInfoEx.h"

/// The device's audio output, shared by all talk-back sessions. Held through SafePointer<IMediaPlayer>.
///
/// The operations stand in this order: the library calls them through their slots. It calls all but play(),
/// which is the dispatchers'.
/// Threads: while the talk-back worker runs, its thread; and the thread that calls
/// OVAudioBackDispatcherMgr::setEncoderType().
class OV_HOST_API IMediaPlayer
{
public:
    virtual ~IMediaPlayer() noexcept(false);
    IMediaPlayer(const IMediaPlayer&) = delete;
    IMediaPlayer& operator=(const IMediaPlayer&) = delete;

    /// Passes the device; called before every open().
    virtual void setDeviceInfo(const DeviceInfoEx& info) = 0;

    /// \param type  encoder type number of the host; takes effect at the next open()
    virtual void setEncoderType(int type) = 0;

    /// Opens the output.
    /// \returns 0 when it is open; otherwise a code of the host, and the output is closed
    virtual int open() = 0;

    /// Plays decoded audio.
    /// \param samples  interleaved signed 16-bit samples; read during the call only
    /// \param bytes    their size
    /// \returns 0, or a code of the host when the output failed
    virtual int play(const std::uint8_t* samples, std::size_t bytes) = 0;

    /// Closes the output; also called on a closed one, which changes nothing.
    virtual void close() = 0;

protected:
    IMediaPlayer() = default;
};
