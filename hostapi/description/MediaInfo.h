#pragma once

#include <cstdint>
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
    /// \param[out] out  a copy of the track when found, otherwise unchanged
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

    /// Wall clock of the first frame that a recording plays, where its normal play time is 0: nanoseconds
    /// since 1970, UTC. The key frame at or before the begin that the URL names, where there is one.
    std::int64_t recordBeginTime = 0;
    /// Length of a recording from that instant on, in seconds; 0 for a live stream, which has none.
    double recordSeconds = 0;

private:
    std::vector<SubMediaInfo> tracks_;
};
