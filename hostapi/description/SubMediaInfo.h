#pragma once

#include <string>

/// Description of one track: what an SDP media section needs. A plain value.
class SubMediaInfo
{
public:
    /// Name of the track inside its presentation, unique there; the text that SETUP's URL ends with.
    std::string trackId;
    /// "video" or "audio".
    std::string mediaType;
    /// Encoding name as registered for RTP: "H264", "H265", "PCMU", "PCMA", "MPEG4-GENERIC".
    std::string encodingName;
    /// Format parameters as they stand behind "a=fmtp:<payload type> "; empty when there are none.
    std::string formatParameters;
    /// RTP payload type, 0 to 127.
    int payloadType = 0;
    /// RTP clock rate in Hz.
    int clockRate = 0;
    /// Audio channels; 0 for video.
    int channels = 0;
    /// Nominal bit rate in kbit/s; 0 when unknown.
    int bitRate = 0;
    /// Frame size in pixels; 0 for audio or when unknown.
    int width = 0;
    /// Height in pixels; 0 as above.
    int height = 0;
    /// Frames a second; 0 for audio or when unknown.
    double frameRate = 0;

    /// Marks the track that a client sends to the device.
    void setAudioBackInfoFlag(bool flag)
    {
        audioBack_ = flag;
    }

    /// True for the audio back channel.
    bool getAudioBackInfoFlag() const
    {
        return audioBack_;
    }

private:
    bool audioBack_ = false;
};
