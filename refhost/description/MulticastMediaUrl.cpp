#include "refhost/description/MulticastMediaUrl.h"

#include "support/StatusCode.h"

namespace refhost
{
namespace
{

const std::string prefix = "orv/multicast";
const std::string key = prefix + "/";
const std::string liveKey = "orv/live/";

}  // namespace

int MulticastMediaUrl::parseMulticastMediaUrl(const std::string& url)
{
    const std::size_t found = url.find(key);
    // The two forms differ only in the prefix, so one parser reads both.
    const int status =
        found == std::string::npos ? statusNotFound : parseMediaUrl(liveKey + url.substr(found + key.size()));
    std::string family = prefix;
    objMediaUrlParam.setMediaUrlPrefix(family);
    objMediaUrlParam.setMulticastFlag(true);
    return status;
}

std::string MulticastMediaUrl::toMulticastMediaUrl()
{
    return key + toMediaUrl().substr(liveKey.size());
}

int MulticastMediaUrl::getThirdPlatType()
{
    return thirdPlatType;
}

}  // namespace refhost
