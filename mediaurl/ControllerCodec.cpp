#include "mediaurl/ControllerCodec.h"

#include <cstdio>

#include "mediaurl/MediaUrlFactoryMap.h"
#include "support/StatusCode.h"

ControllerCodec::ControllerCodec(const char* controllerName) : controllerName_(controllerName) {}

int ControllerCodec::create(int thirdPlatType, const std::string& url)
{
    if (!MediaUrlFactoryMap::getInstance()->lookup(thirdPlatType, factory_))
    {
        std::printf("##########%s::parseMediaUrl can not find the MediaUrlFactory of \"%s\"!!\n",
                    controllerName_, url.c_str());
        return statusRefused;
    }
    return createCodec();
}

int ControllerCodec::createForRendering(int thirdPlatType)
{
    if (!MediaUrlFactoryMap::getInstance()->lookup(thirdPlatType, factory_))
    {
        std::printf("##########%s::MediaUrlFactoryMap::getInstance()->lookup MediaUrlFactory fail!!\n",
                    controllerName_);
        return statusRefused;
    }
    return createCodec();
}

IMediaUrl* ControllerCodec::operator->() const
{
    return codec_.operator->();
}

int ControllerCodec::createCodec()
{
    const int result = factory_->createMediaUrl(codec_);
    if (result != statusSuccess)
    {
        // Deliberately createMedia although the operation is createMediaUrl: readers of the output search for
        // it.
        std::printf("##########%s::parseMediaUrl objMediaUrlFactory->createMedia error!!\n", controllerName_);
    }
    return result;
}
