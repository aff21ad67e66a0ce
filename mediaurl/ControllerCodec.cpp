#include "mediaurl/ControllerCodec.h"

#include <cstdio>

#include "mediaurl/MediaUrlFactoryMap.h"
#include "support/StatusCode.h"

ControllerCodec::ControllerCodec(const char* controllerName) : controllerName_(controllerName) {}

int ControllerCodec::create(int thirdPlatType, const std::string& url, SafePointer<IMediaUrl>& codec) const
{
    SafePointer<IMediaUrlFactory> factory;
    if (!MediaUrlFactoryMap::getInstance()->lookup(thirdPlatType, factory))
    {
        std::printf("##########%s::parseMediaUrl can not find the MediaUrlFactory of \"%s\"!!\n",
                    controllerName_, url.c_str());
        return statusRefused;
    }
    return createBy(factory, codec);
}

int ControllerCodec::createForRendering(int thirdPlatType, SafePointer<IMediaUrl>& codec) const
{
    SafePointer<IMediaUrlFactory> factory;
    if (!MediaUrlFactoryMap::getInstance()->lookup(thirdPlatType, factory))
    {
        std::printf("##########%s::MediaUrlFactoryMap::getInstance()->lookup MediaUrlFactory fail!!\n",
                    controllerName_);
        return statusRefused;
    }
    return createBy(factory, codec);
}

int ControllerCodec::createBy(const SafePointer<IMediaUrlFactory>& factory,
                              SafePointer<IMediaUrl>& codec) const
{
    const int result = factory->createMediaUrl(codec);
    if (result != statusSuccess)
    {
        // The line says createMedia where the operation is createMediaUrl; who reads the output looks for it
        // so.
        std::printf("##########%s::parseMediaUrl objMediaUrlFactory->createMedia error!!\n", controllerName_);
    }
    return result;
}
