#pragma once

/// What the device can do beyond plain live streams. A plain value, copied whole.
class DeviceExAbility
{
public:
    /// \param supported  true when clients may talk to the device
    void setAudioBackFlag(bool supported)
    {
        audioBack_ = supported;
    }

    /// True when clients may talk to the device.
    bool getAudioBackFlag() const
    {
        return audioBack_;
    }

private:
    bool audioBack_ = false;
};
