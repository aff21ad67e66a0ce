#include "refhost/base/MediaLogs.h"

#include <gst/gst.h>

extern "C"
{
#include <libavutil/log.h>
}

#include <chrono>
#include <string_view>

#include "refhost/base/Log.h"
#include "refhost/base/Mutex.h"

namespace refhost
{
namespace
{

constexpr std::size_t maxMessage = 500;

// Broken media of one camera can cause a warning per packet; messages beyond the budget are only counted.
class Budget
{
public:
    static Budget& instance()
    {
        static auto* const budget = new Budget;
        return *budget;
    }

    bool take()
    {
        const MutexLock guard(mutex_);
        const auto now = std::chrono::steady_clock::now();
        if (now - windowStart_ >= std::chrono::seconds(1))
        {
            windowStart_ = now;
            used_ = 0;
            if (suppressed_ > 0)
            {
                Log::warning("media library: {} more messages suppressed", suppressed_);
                suppressed_ = 0;
            }
        }
        if (used_ >= linesPerSecond)
        {
            ++suppressed_;
            return false;
        }
        ++used_;
        return true;
    }

private:
    static constexpr int linesPerSecond = 20;

    Mutex mutex_;
    std::chrono::steady_clock::time_point windowStart_ OV_GUARDED_BY(mutex_);
    int used_ OV_GUARDED_BY(mutex_) = 0;
    int suppressed_ OV_GUARDED_BY(mutex_) = 0;
};

void write(Log::Level level, std::string_view source, std::string_view message)
{
    if (!Log::enabled(level) || (level >= Log::Level::warning && !Budget::instance().take()))
    {
        return;
    }
    Log::write(level, fmt::format("{}: {}", source, Log::safe(message, maxMessage)));
}

GLogWriterOutput onGlibLog(GLogLevelFlags flags, const GLogField* fields, gsize count, gpointer)
{
    std::string_view domain = "GLib";
    std::string_view message;
    for (gsize i = 0; i < count; ++i)
    {
        const auto* const text = static_cast<const char*>(fields[i].value);
        const std::string_view value =
            fields[i].length < 0 ? std::string_view(text)
                                 : std::string_view(text, static_cast<std::size_t>(fields[i].length));
        const std::string_view key = fields[i].key;
        if (key == "MESSAGE")
        {
            message = value;
        }
        else if (key == "GLIB_DOMAIN")
        {
            domain = value;
        }
    }
    const bool isError = (flags & (G_LOG_LEVEL_ERROR | G_LOG_LEVEL_CRITICAL)) != 0;
    const bool isWarning = (flags & G_LOG_LEVEL_WARNING) != 0;
    const bool isDebug = (flags & G_LOG_LEVEL_DEBUG) != 0;
    const Log::Level mild = isDebug ? Log::Level::trace : Log::Level::debug;
    write(isError ? Log::Level::error : isWarning ? Log::Level::warning : mild, domain, message);
    return G_LOG_WRITER_HANDLED;
}

// One level below GStreamer's: its elements warn of problems that they handle, and real failures of a
// pipeline also arrive on its bus, where the stream's owner reports them.
Log::Level toLevel(GstDebugLevel level)
{
    switch (level)
    {
        case GST_LEVEL_ERROR:
            return Log::Level::warning;
        case GST_LEVEL_WARNING:
        case GST_LEVEL_FIXME:
        case GST_LEVEL_INFO:
            return Log::Level::debug;
        default:
            return Log::Level::trace;
    }
}

void onGstreamerLog(GstDebugCategory* category, GstDebugLevel level, const gchar*, const gchar*, gint,
                    GObject* object, GstDebugMessage* message, gpointer)
{
    const std::string source =
        GST_IS_OBJECT(object) && GST_OBJECT_NAME(object) != nullptr
            ? fmt::format("gstreamer {} {}", gst_debug_category_get_name(category), GST_OBJECT_NAME(object))
            : fmt::format("gstreamer {}", gst_debug_category_get_name(category));
    const gchar* const text = gst_debug_message_get(message);
    write(toLevel(level), source, text != nullptr ? text : "");
}

}  // namespace

void MediaLogs::bridge()
{
    // libav would write to standard error itself, one or more lines for each malformed frame of a client.
    av_log_set_level(AV_LOG_QUIET);
    g_log_set_writer_func(onGlibLog, nullptr, nullptr);
    gst_debug_remove_log_function(gst_debug_log_default);
    gst_debug_add_log_function(onGstreamerLog, nullptr, nullptr);
    if (g_getenv("GST_DEBUG") == nullptr)
    {
        gst_debug_set_default_threshold(GST_LEVEL_WARNING);
    }
}

}  // namespace refhost
