#pragma once

#include <gst/gst.h>

#include <string>

namespace refhost
{

enum class UnlinkedPads
{
    ghosted,  ///< become pads of the bin
    left
};

/// Makes a bin from a launch line.
/// \param[out] error  why not, as GStreamer says it
/// \returns the bin with a floating reference; null with `error` set when the line is wrong or names an
///          element that is not installed
GstElement* makeLaunchBin(const std::string& line, UnlinkedPads pads, std::string& error);

/// Makes what a launch line says: the element itself, where it names one alone. As above otherwise.
GstElement* makeLaunchElement(const std::string& line, std::string& error);

}  // namespace refhost
