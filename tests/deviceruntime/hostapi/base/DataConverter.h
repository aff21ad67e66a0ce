#pragma once

#include <string>

#include "hostapi/base/HostExport.h"

/// A device's conversions.
class OV_HOST_API DataConverter
{
public:
    static bool convert(const std::string& text, int& number);
    static bool convert(const std::string& text, double& number);
    static bool convert(const int& number, std::string& text);
    static bool convert(const unsigned long& number, std::string& text);
    static bool convert(const double& number, std::string& text);
};
