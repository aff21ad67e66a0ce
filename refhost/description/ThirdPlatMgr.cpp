#include "hostapi/description/ThirdPlatMgr.h"

#include "refhost/media/MediaCoding.h"

namespace
{

enum ElementaryStreamType
{
    videoStream = 1,
    audioStream = 2
};

}  // namespace

// Track ids follow the kind of media alone, so that any coding of the kind stands for it.
std::string ThirdPlatMgr::getTrackIDByESStreamType(int, int esStreamType, bool backChannel, int)
{
    if (backChannel)
    {
        return std::string();
    }
    switch (esStreamType)
    {
        case videoStream:
            return refhost::trackIdOf(refhost::MediaCoding::h264);
        case audioStream:
            return refhost::trackIdOf(refhost::MediaCoding::pcmu);
        default:
            return std::string();
    }
}
