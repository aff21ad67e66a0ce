#pragma once

#include <string>
#include <vector>

#include "hostapi/description/SubMediaInfo.h"

/// Description of one presentation: its tracks in the order of the SDP. A plain value, copied whole.
class MediaInfo
{
public:
    /// Removes every track.
    void clearAllSubMediaInfo()
    {
        tracks_.clear();
    }

    /// Appends a track; the caller sees to it that track ids differ.
    void addSubMediaInfo(const SubMediaInfo& track)
    {
        tracks_.push_back(track);
    }

    /// Finds a track by its id.
    /// \param[out] out  a copy of the track when found, otherwise left as it was
    /// \returns true when found
    bool getSubMediaInfo(const std::string& trackId, SubMediaInfo& out) const
    {
        for (const SubMediaInfo& track : tracks_)
        {
            if (track.trackId == trackId)
            {
                out = track;
                return true;
            }
        }
        return false;
    }

    /// All tracks in order.
    const std::vector<SubMediaInfo>& getAllSubMediaInfo() const
    {
        return tracks_;
    }

    /// Canonical URL text of the presentation, without scheme and authority.
    std::string mediaUrl;

private:
    std::vector<SubMediaInfo> tracks_;
};
