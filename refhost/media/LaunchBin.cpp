#include "refhost/media/LaunchBin.h"

namespace refhost
{
namespace
{

/// Releases the partial result that some failures leave.
GstElement* complete(GstElement* made, GError* problem, std::string& error)
{
    if (problem == nullptr && made != nullptr)
    {
        return made;
    }
    error = problem == nullptr ? "GStreamer lacks an element" : problem->message;
    g_clear_error(&problem);
    if (made != nullptr)
    {
        gst_object_unref(gst_object_ref_sink(made));
    }
    return nullptr;
}

}  // namespace

GstElement* makeLaunchBin(const std::string& line, UnlinkedPads pads, std::string& error)
{
    GError* problem = nullptr;
    GstElement* const made = gst_parse_bin_from_description_full(
        line.c_str(), pads == UnlinkedPads::ghosted, nullptr, GST_PARSE_FLAG_FATAL_ERRORS, &problem);
    return complete(made, problem, error);
}

GstElement* makeLaunchElement(const std::string& line, std::string& error)
{
    GError* problem = nullptr;
    GstElement* const made =
        gst_parse_launch_full(line.c_str(), nullptr, GST_PARSE_FLAG_FATAL_ERRORS, &problem);
    return complete(made, problem, error);
}

}  // namespace refhost
