#pragma once

namespace refhost
{

/// Forwards warnings and errors of GLib and GStreamer to the program's log. Messages that the environment
/// enables by GST_DEBUG are forwarded too, at the levels debug and trace. At most a few lines a second are
/// written; the others are counted. FFmpeg's libraries are silenced, because their callers report errors.
///
/// Threads: call bridge() once, before other threads use GLib.
class MediaLogs
{
public:
    /// Call before gst_init(), at most once: GLib permits one writer per process.
    static void bridge();
};

}  // namespace refhost
