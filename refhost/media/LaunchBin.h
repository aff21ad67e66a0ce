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

/// Creates a bin from a launch line.
/// \param[out] error  GStreamer's message; set on failure only
/// \returns the bin with a floating reference; null when the line is malformed or names an element that is
///          not installed
GstElement* makeLaunchBin(const std::string& line, UnlinkedPads pads, std::string& error);

/// As above, but returns the element itself when the line names only one.
GstElement* makeLaunchElement(const std::string& line, std::string& error);

}  // namespace refhost
