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
/// Prefixes are looked for byte for byte, case-sensitive, and anywhere in the text: whatever stands in front
/// of the first occurrence (scheme, authority) is ignored. Every syntax failure is -8; nothing is printed.
class OV_EXPORT OrvaneMediaUrl : public IMediaUrl
{
public:
    OrvaneMediaUrl();
    ~OrvaneMediaUrl() noexcept(false) override;

    /// Reads camera and stream; what a number is, DataConverter decides. The stream field is everything
    /// behind the camera's "/", to the end of the text. The prefix is "orv/live" afterwards in any case.
    /// \returns 0, or -8 with camera and stream left as they were
    int parseMediaUrl(const std::string& url) override;

    /// "orv/live/" with camera and stream, whatever was parsed last.
    std::string toMediaUrl() override;

    /// The syntax has no multicast form: accepts any text, writes nothing and returns 0.
    int parseMulticastMediaUrl(const std::string& url) override;
    /// Always empty.
    std::string toMulticastMediaUrl() override;

    /// Reads camera, begin and end; the times are digits only, of any length, and any order of the two is
    /// taken. The prefix is "orv/playback" afterwards in any case, and the camera is stored as soon as it was
    /// read, also when the times turn out malformed.
    /// \returns 0, or -8 with begin and end left as they were
    int parsePlaybackMediaUrl(const std::string& url) override;

    /// "orv/playback/" with camera, begin and end in whole seconds: fractions are dropped, values outside of
    /// 0 to 4294967295 become the nearer end of that range.
    std::string toPlayBackMediaUrl() override;

    /// Always 1.
    int getThirdPlatType() override;

    /// True for one or more characters '0' to '9' and nothing else.
    bool isValidNumString(const std::string& text) const;
};
