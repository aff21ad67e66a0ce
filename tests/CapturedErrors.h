#pragma once

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

/// The lines that the process writes to standard error, where its log goes, while this object lives.
class CapturedErrors
{
public:
    CapturedErrors()
    {
        testing::internal::CaptureStderr();
    }
    CapturedErrors(const CapturedErrors&) = delete;
    CapturedErrors& operator=(const CapturedErrors&) = delete;
    ~CapturedErrors()
    {
        end();
    }

    /// Ends the capture. \returns the lines with `part` in them
    std::vector<std::string> linesWith(const std::string& part)
    {
        end();
        std::vector<std::string> found;
        std::istringstream text(text_);
        for (std::string line; std::getline(text, line);)
        {
            if (line.find(part) != std::string::npos)
            {
                found.push_back(line);
            }
        }
        return found;
    }

private:
    void end()
    {
        if (active_)
        {
            text_ = testing::internal::GetCapturedStderr();
            active_ = false;
        }
    }

    bool active_ = true;
    std::string text_;
};
