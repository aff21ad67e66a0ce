#pragma once

#include <string>

/// One track of a multicast session and the URL that it was set up with first. A plain value.
class TrackParam
{
public:
    /// \param id  name of the track in its description
    void setTrackID(const std::string& id)
    {
        trackId_ = id;
    }

    /// Valid as long as the record.
    const std::string& getTrackID() const
    {
        return trackId_;
    }

    /// The name is spelt so: hosts bind to it.
    /// \param url  as the client gave it
    void setMeidaUrl(const std::string& url)
    {
        mediaUrl_ = url;
    }

    /// Valid as long as the record.
    const std::string& getMeidaUrl() const
    {
        return mediaUrl_;
    }

private:
    std::string trackId_;
    std::string mediaUrl_;
};
