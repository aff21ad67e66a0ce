#pragma once

#include <string>
#include <vector>

#include "mediaurl/IMediaUrl.h"
#include "mediaurl/IMediaUrlFactory.h"

/// A codec whose factory is unregistered while the codec works, as by a host that removes a platform type
/// during a request. It accepts every URL. Its operations are logged with whether its factory still lives, and
/// so are the destructions of both.
class WatchedCodec : public IMediaUrl
{
public:
    /// When the factory is unregistered.
    enum Moment
    {
        whileParsing,
        whileRendering
    };

    /// Registers a factory of such codecs; the log starts again.
    static void registerUnder(int thirdPlatType, Moment unregistered);
    /// "parse, factory lives", "codec gone", "factory gone" and the like, in order.
    static std::vector<std::string>& events();

    WatchedCodec(int thirdPlatType, Moment unregistered);
    ~WatchedCodec() noexcept(false) override;

    int parseMediaUrl(const std::string& url) override;
    std::string toMediaUrl() override;
    int parseMulticastMediaUrl(const std::string& url) override;
    std::string toMulticastMediaUrl() override;
    int parsePlaybackMediaUrl(const std::string& url) override;
    std::string toPlayBackMediaUrl() override;
    int getThirdPlatType() override;

private:
    int parse();
    std::string render();
    void work(const char* operation, bool unregister) const;

    const int thirdPlatType_;
    const Moment unregistered_;
};
