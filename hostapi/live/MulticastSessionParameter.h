#pragma once

#include <cstddef>
#include <mutex>
#include <string>
#include <vector>

#include "hostapi/base/HostExport.h"
#include "hostapi/live/MulticastMemberSessionParameter.h"
#include "hostapi/live/TrackParam.h"

/// Record of one multicast session: which RTSP sessions are its members and which tracks were set up.
///
/// Made by the multicast controller, kept by LiveDispatcherMgr and shared through
/// SafePointer<MulticastSessionParameter>. Threads: any; each operation takes the record's own lock.
class OV_HOST_API MulticastSessionParameter
{
public:
    /// Without id, members and tracks.
    MulticastSessionParameter() = default;
    virtual ~MulticastSessionParameter() = default;
    MulticastSessionParameter(const MulticastSessionParameter&) = delete;
    MulticastSessionParameter& operator=(const MulticastSessionParameter&) = delete;

    /// \param id  what MulticastSessionToken made
    void setMulticastSessionId(const std::string& id)
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        multicastSessionId_ = id;
    }

    /// A copy; empty unless set.
    std::string getMulticastSessionId() const
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        return multicastSessionId_;
    }

    /// True when the RTSP session is a member.
    bool findMemberSession(const std::string& memberSessionId) const
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        return placeOfMember(memberSessionId) != members_.size();
    }

    /// Adds a member behind the others; a member that is there already stays where it is.
    void addMemberSessionParam(const MulticastMemberSessionParameter& member)
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        if (placeOfMember(member.getMemberSessionId()) == members_.size())
        {
            members_.push_back(member);
        }
    }

    /// Removes a member; an unknown id changes nothing.
    void deleteMemberSessionParam(const std::string& memberSessionId)
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        const std::size_t place = placeOfMember(memberSessionId);
        if (place != members_.size())
        {
            members_.erase(members_.begin() + static_cast<std::ptrdiff_t>(place));
        }
    }

    /// Ids of the members in the order in which they were added.
    std::vector<std::string> getMemberSessionIdList() const
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        std::vector<std::string> ids;
        for (const MulticastMemberSessionParameter& member : members_)
        {
            ids.push_back(member.getMemberSessionId());
        }
        return ids;
    }

    /// True when a member has set the track up.
    bool findMulticastSessionTrackParam(const std::string& trackId) const
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        return hasTrack(trackId);
    }

    /// Adds a track behind the others; of a track that is there already the first URL stays.
    void addTrackParam(const TrackParam& track)
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        if (!hasTrack(track.getTrackID()))
        {
            tracks_.push_back(track);
        }
    }

    /// The tracks in the order in which they were added.
    std::vector<TrackParam> getTrackParamList() const
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        return tracks_;
    }

private:
    // \returns the number of members when there is none of this id. Caller holds the lock.
    std::size_t placeOfMember(const std::string& id) const
    {
        std::size_t place = 0;
        while (place != members_.size() && members_[place].getMemberSessionId() != id)
        {
            ++place;
        }
        return place;
    }

    // Caller holds the lock.
    bool hasTrack(const std::string& id) const
    {
        for (const TrackParam& track : tracks_)
        {
            if (track.getTrackID() == id)
            {
                return true;
            }
        }
        return false;
    }

    mutable std::mutex mutex_;
    std::string multicastSessionId_;
    std::vector<MulticastMemberSessionParameter> members_;
    std::vector<TrackParam> tracks_;
};
