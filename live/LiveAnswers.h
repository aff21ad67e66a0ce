#pragma once

#include <string>

#include "live/IRTSPController.h"
#include "support/Export.h"

/// What every live controller answers alike, asking nobody: a live stream has no range, no speed and is
/// always connected. No data and no virtual operation of its own, so that it shows in no controller's layout.
class OV_EXPORT LiveAnswers : public IRTSPController
{
public:
    LiveAnswers();
    ~LiveAnswers() noexcept(false) override;

    /// Does nothing; 0.
    int mediaInit() override;
    /// Does nothing; 0.
    int setPlayRange(const std::string& sessionId, const std::string& trackId, double start, double end,
                     int rangeKind, bool rangeFlag) override;
    /// -100.0 and -99.0; 0.
    int getCurPlayRange(const std::string& sessionId, const std::string& trackId, double& start,
                        double& end) override;
    /// -100.0 and -99.0 whatever was asked for; 0.
    int correctPlayRange(const std::string& sessionId, const std::string& trackId, double start, double end,
                         double& outStart, double& outEnd) override;
    /// Does nothing; 0.
    int setPauseRange(const std::string& sessionId, const std::string& trackId, double position) override;
    /// Always connected; 0.
    int getConnetionState(std::string sessionId, std::string trackId, bool& connected) override;
    /// Does nothing; 0.
    int setSpeed(const std::string& sessionId, const std::string& trackId, double scale,
                 double speed) override;
    /// Does nothing.
    void setRTCPFrequence(const std::string& sessionId, const std::string& trackId, int frequency) override;
};
