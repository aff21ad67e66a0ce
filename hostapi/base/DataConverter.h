#pragma once

#include <string>

#include "hostapi/base/HostExport.h"

/// Conversions between numbers and their decimal text.
///
/// Threads: any; no state. Texts are read strictly: the whole text must be the number, in decimal, within the
/// type's range, without blanks around it; an empty text is no number. A leading '-' is accepted, a leading
/// '+' is not; leading zeros are accepted.
class OV_HOST_API DataConverter
{
public:
    /// \param[out] number  the number read; unchanged when the text is refused
    /// \returns true when the text was a number of the type
    static bool convert(const std::string& text, int& number);
    /// As above; digits with an optional decimal point and exponent. Refuses "inf" and "nan".
    static bool convert(const std::string& text, double& number);

    /// \param[out] text  the number in decimal, without leading zeros
    /// \returns true
    static bool convert(const int& number, std::string& text);
    /// As above.
    static bool convert(const unsigned long& number, std::string& text);
    /// The shortest text that parses to the same number.
    static bool convert(const double& number, std::string& text);
};
