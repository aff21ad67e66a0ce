#pragma once
// Tested by tests/mediaurl/OrvaneMediaUrlLive_test.cpp, tests/mediaurl/OrvaneMediaUrlPlayback_test.cpp.

#include <string>

#include "mediaurl/IMediaUrl.h"
#include "support/Export.h"

/// The device's own URL syntax.
///
///     live:      orv/live/<camera>/<stream>
///     playback:  orv/playback/<camera>_<begin>_<end>
///
/// Prefixes are matched byte for byte, case-sensitive, anywhere in the text; everything before the first
/// occurrence (scheme, authority) is ignored. Every syntax error is -8; nothing is printed.
class OV_EXPORT OrvaneMediaUrl : public IMediaUrl
{
public:
    OrvaneMediaUrl();
    ~OrvaneMediaUrl() noexcept(false) override;

    /// Parses camera and stream; DataConverter decides what is a number. The stream field is everything after
    /// the camera's "/". In any case the prefix is "orv/live" afterwards.
    /// \returns 0, or -8 with camera and stream unchanged
    int parseMediaUrl(const std::string& url) override;

    /// "orv/live/" with camera and stream, whatever form was parsed last.
    std::string toMediaUrl() override;

    /// The syntax has no multicast form: accepts any text, writes nothing and returns 0.
    int parseMulticastMediaUrl(const std::string& url) override;
    /// Always empty.
    std::string toMulticastMediaUrl() override;

    /// Parses camera, begin and end; the times are digits only, of any length, and the end may precede the
    /// begin. In any case the prefix is "orv/playback" afterwards; a valid camera is stored even when the times
    /// are malformed.
    /// \returns 0, or -8 with begin and end unchanged
    int parsePlaybackMediaUrl(const std::string& url) override;

    /// "orv/playback/" with camera, begin and end in whole seconds: fractions are dropped, values outside 0 to
    /// 4294967295 become the nearer end of that range.
    std::string toPlayBackMediaUrl() override;

    /// Always 1.
    int getThirdPlatType() override;

    /// True for one or more characters '0' to '9' and nothing else.
    bool isValidNumString(const std::string& text) const;
};
