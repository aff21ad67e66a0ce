#include "hostapi/description/ThirdPlatMgr.h"

#include "refhost/media/Codec.h"

namespace
{

enum ElementaryStreamType
{
    videoStream = 1,
    audioStream = 2
};

}  // namespace

// The track id depends on the kind of media only.
std::string ThirdPlatMgr::getTrackIDByESStreamType(int, int esStreamType, bool backChannel, int)
{
    if (backChannel)
    {
        return std::string();
    }
    switch (esStreamType)
    {
        case videoStream:
            return refhost::trackIdOf(refhost::MediaKind::video);
        case audioStream:
            return refhost::trackIdOf(refhost::MediaKind::audio);
        default:
            return std::string();
    }
}
