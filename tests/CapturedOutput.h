#pragma once

#include <string>

/// What the process writes to standard output while this object lives.
class CapturedOutput
{
public:
    CapturedOutput();
    ~CapturedOutput();
    CapturedOutput(const CapturedOutput&) = delete;
    CapturedOutput& operator=(const CapturedOutput&) = delete;

    /// Ends the capture and returns what was written.
    std::string text();

private:
    bool active_ = true;
};
