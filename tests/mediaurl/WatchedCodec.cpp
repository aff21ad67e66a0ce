#include "tests/mediaurl/WatchedCodec.h"

#include "mediaurl/MediaUrlFactoryMap.h"

namespace
{

int livingFactories = 0;

class WatchedCodecFactory : public IMediaUrlFactory
{
public:
    WatchedCodecFactory(int thirdPlatType, WatchedCodec::Moment unregistered)
        : thirdPlatType_(thirdPlatType), unregistered_(unregistered)
    {
        ++livingFactories;
    }

    ~WatchedCodecFactory() noexcept(false) override
    {
        --livingFactories;
        WatchedCodec::events().push_back("factory gone");
    }

    int createMediaUrl(SafePointer<IMediaUrl>& codec) override
    {
        codec = SafePointer<IMediaUrl>(new WatchedCodec(thirdPlatType_, unregistered_));
        return 0;
    }

private:
    const int thirdPlatType_;
    const WatchedCodec::Moment unregistered_;
};

}  // namespace

void WatchedCodec::registerUnder(int thirdPlatType, Moment unregistered)
{
    MediaUrlFactoryMap::getInstance()->registerFactory(
        thirdPlatType, SafePointer<IMediaUrlFactory>(new WatchedCodecFactory(thirdPlatType, unregistered)));
    events().clear();
}

std::vector<std::string>& WatchedCodec::events()
{
    static std::vector<std::string> log;
    return log;
}

WatchedCodec::WatchedCodec(int thirdPlatType, Moment unregistered)
    : thirdPlatType_(thirdPlatType), unregistered_(unregistered)
{
}

WatchedCodec::~WatchedCodec() noexcept(false)
{
    events().push_back("codec gone");
}

int WatchedCodec::parseMediaUrl(const std::string&)
{
    return parse();
}

std::string WatchedCodec::toMediaUrl()
{
    return render();
}

int WatchedCodec::parseMulticastMediaUrl(const std::string&)
{
    return parse();
}

std::string WatchedCodec::toMulticastMediaUrl()
{
    return render();
}

int WatchedCodec::parsePlaybackMediaUrl(const std::string&)
{
    return parse();
}

std::string WatchedCodec::toPlayBackMediaUrl()
{
    return render();
}

int WatchedCodec::getThirdPlatType()
{
    work("type", false);
    return thirdPlatType_;
}

int WatchedCodec::parse()
{
    work("parse", unregistered_ == whileParsing);
    return 0;
}

std::string WatchedCodec::render()
{
    work("render", unregistered_ == whileRendering);
    return "rendered";
}

void WatchedCodec::work(const char* operation, bool unregister) const
{
    if (unregister)
    {
        MediaUrlFactoryMap::getInstance()->unregisterFactory(thirdPlatType_);
    }
    events().push_back(std::string(operation) +
                       (livingFactories == 0 ? ", factory gone" : ", factory lives"));
}
