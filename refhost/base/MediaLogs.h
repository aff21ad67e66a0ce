#pragma once

namespace refhost
{

/// Brings what GLib and GStreamer have to say into the program's log, from warnings on. Where the environment
/// sets GST_DEBUG, what it asks for comes too, at the levels debug and trace. A burst is cut short: a few
/// lines a second at most, and how many were left out. FFmpeg's libraries are silenced: who uses them says
/// what went wrong.
///
/// Threads: bridge() once, before other threads use GLib.
class MediaLogs
{
public:
    /// Before gst_init(); GLib permits it once in a process.
    static void bridge();
};

}  // namespace refhost
