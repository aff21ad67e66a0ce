#include "refhost/description/DescriptionReadiness.h"

#include <memory>
#include <vector>

#include "refhost/description/MulticastMediaUrl.h"
#include "refhost/media/Device.h"

namespace refhost
{
namespace
{

bool isDescribed(const MediaUrlParam& stream)
{
    const std::shared_ptr<StreamDirectory> streams = Device::streams();
    const std::shared_ptr<StreamSource> source =
        streams ? streams->find(stream.getCameraID(), stream.getStreamID()) : nullptr;
    std::vector<SubMediaInfo> tracks;
    return !source || source->describe(tracks) != StreamSource::Description::starting;
}

}  // namespace

bool DescriptionReadiness::live(const std::string& presentation)
{
    OrvaneMediaUrl url;
    return url.parseMediaUrl(presentation) != 0 || isDescribed(url.objMediaUrlParam);
}

bool DescriptionReadiness::multicast(const std::string& presentation)
{
    MulticastMediaUrl url;
    return url.parseMulticastMediaUrl(presentation) != 0 || isDescribed(url.objMediaUrlParam);
}

bool DescriptionReadiness::recorded(const std::string&)
{
    return !Device::recordingsExpected();
}

}  // namespace refhost
