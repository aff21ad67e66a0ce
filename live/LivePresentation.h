#pragma once
// Tested by tests/live/LiveControllers_test.cpp.

#include <string>

#include "hostapi/description/MediaInfo.h"
#include "hostapi/device/DeviceExAbility.h"
#include "hostapi/device/DeviceInfoEx.h"
#include "mediaurl/IMediaUrl.h"
#include "mediaurl/MediaUrlParam.h"
#include "support/Export.h"

/// Turns a live controller's URL into the description of its presentation. Created for each use; refers to the
/// controller's fields.
class OV_INTERNAL LivePresentation
{
public:
    /// Differences between the controller classes.
    struct Form
    {
        /// Class name in printed lines; a literal.
        const char* controllerName;
        /// The codec's operations for the controller's kind of URL.
        int (IMediaUrl::*parse)(const std::string& url);
        std::string (IMediaUrl::*render)();
    };

    /// The controller's fields that are used.
    struct Fields
    {
        std::string& mediaUrl;
        std::string& streamKey;
        MediaUrlParam& mediaUrlParam;
        MediaInfo& mediaInfo;
        DeviceInfoEx& deviceInfo;
        DeviceExAbility& deviceAbility;
    };

    LivePresentation(const Form& form, const Fields& fields);

    /// Parses the URL, stores the settings and builds the description.
    /// \returns 0; the result of parse(), and nothing else is stored then; or the result of describe()
    int init(int thirdPlatType, const std::string& url, const DeviceInfoEx& deviceInfo,
             const DeviceExAbility& deviceAbility, bool mediaInfoFlag) const;

    /// Parses a URL with a new codec and stores its values; a failure is printed.
    /// \param[out] key  "<camera>/<stream>" on success, otherwise unchanged
    /// \returns 0; -6 when no codec factory is registered; otherwise the factory's or the codec's code
    int parse(int thirdPlatType, const std::string& url, std::string& key) const;

    /// Requests the description of the parsed URL from the host, under its canonical URL; a failure is printed.
    /// \param[out] out  the description on success
    /// \returns 0; -6 when no codec factory is registered; otherwise the factory's or MediaInfoTool's code
    int describe(int thirdPlatType, bool mediaInfoFlag, MediaInfo& out) const;

private:
    const Form& form_;
    Fields fields_;
};
