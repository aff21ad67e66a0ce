#include "refhost/rtp/payload/FormatText.h"

namespace refhost
{

bool formatText(const MediaFormat& format, std::string& text)
{
    switch (format.codec)
    {
        case Codec::opus:
            text = format.channels == 2 ? "sprop-maxcapturerate=48000;sprop-stereo=1"
                                        : "sprop-maxcapturerate=48000;sprop-stereo=0";
            return true;
        case Codec::pcmu:
        case Codec::pcma:
        case Codec::mjpeg:
            text.clear();
            return true;
        default:
            return false;
    }
}

}  // namespace refhost
