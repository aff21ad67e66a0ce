// Plays a WAV file on a camera: GStreamer's rtspsrc sends it on the ONVIF back channel.
//
// Usage: gst_talk URL FILE [udp|tcp]

#include <gst/gst.h>

#include <iostream>
#include <string>

namespace
{

class Talk
{
public:
    Talk(const std::string& url, std::string file, const std::string& transport)
        : file_(std::move(file)),
          loop_(g_main_loop_new(nullptr, FALSE)),
          pipeline_(gst_pipeline_new(nullptr)),
          source_(gst_element_factory_make("rtspsrc", nullptr))
    {
        gst_bin_add(GST_BIN(pipeline_), source_);
        gst_util_set_object_arg(G_OBJECT(source_), "location", url.c_str());
        gst_util_set_object_arg(G_OBJECT(source_), "protocols", transport.c_str());
        gst_util_set_object_arg(G_OBJECT(source_), "backchannel", "onvif");
        // Servers of tests sign their certificates themselves.
        gst_util_set_object_arg(G_OBJECT(source_), "tls-validation-flags", "0");
        g_signal_connect(source_, "select-stream", G_CALLBACK(onStream), this);
        g_signal_connect(source_, "pad-added", G_CALLBACK(onPad), this);
        watch(pipeline_);
    }
    Talk(const Talk&) = delete;
    Talk& operator=(const Talk&) = delete;
    ~Talk()
    {
        end(microphone_);
        end(pipeline_);
        g_main_loop_unref(loop_);
    }

    /// \returns what went wrong, or nothing
    std::string run()
    {
        gst_element_set_state(pipeline_, GST_STATE_PLAYING);
        g_main_loop_run(loop_);
        return problem_;
    }

private:
    static void end(GstElement* pipeline)
    {
        if (pipeline != nullptr)
        {
            gst_element_set_state(pipeline, GST_STATE_NULL);
            gst_object_unref(pipeline);
        }
    }

    void watch(GstElement* pipeline)
    {
        GstBus* const bus = gst_element_get_bus(pipeline);
        gst_bus_add_signal_watch(bus);
        g_signal_connect(bus, "message::error", G_CALLBACK(onError), this);
        g_signal_connect(bus, "message::eos", G_CALLBACK(onEnd), this);
        gst_object_unref(bus);
    }

    void fail(const std::string& problem)
    {
        problem_ = problem;
        g_main_loop_quit(loop_);
    }

    // How audio becomes RTP of the back channel's encoding.
    static std::string encoder(const GstStructure* stream)
    {
        const std::string encoding = gst_structure_get_string(stream, "encoding-name");
        int payload = 0;
        gst_structure_get_int(stream, "payload", &payload);
        const std::string type = " pt=" + std::to_string(payload);
        const std::string packets = type + " min-ptime=20000000 max-ptime=20000000";
        if (encoding == "PCMU")
        {
            return "audio/x-raw,rate=8000,channels=1 ! mulawenc ! rtppcmupay" + packets;
        }
        if (encoding == "PCMA")
        {
            return "audio/x-raw,rate=8000,channels=1 ! alawenc ! rtppcmapay" + packets;
        }
        if (encoding == "OPUS")
        {
            return "audio/x-raw,rate=48000,channels=1 ! opusenc bitrate=64000 ! rtpopuspay" + type;
        }
        return "audio/x-raw,rate=16000,channels=1 ! avenc_aac bitrate=48000 ! aacparse ! rtpmp4gpay" + type;
    }

    static gboolean onStream(GstElement*, guint number, GstCaps* caps, Talk* self)
    {
        const GstStructure* const stream = gst_caps_get_structure(caps, 0);
        if (gst_structure_has_field(stream, "a-sendonly"))
        {
            const std::string line = "filesrc location=\"" + self->file_ +
                                     "\" ! wavparse ! audioconvert ! audioresample ! " + encoder(stream) +
                                     " ! appsink name=packets sync=true emit-signals=true";
            self->channel_ = number;
            self->microphone_ = gst_parse_launch(line.c_str(), nullptr);
            GstElement* const packets = gst_bin_get_by_name(GST_BIN(self->microphone_), "packets");
            g_signal_connect(packets, "new-sample", G_CALLBACK(onPacket), self);
            gst_object_unref(packets);
            self->watch(self->microphone_);
        }
        return TRUE;
    }

    static void onPad(GstElement*, GstPad* pad, Talk* self)
    {
        GstElement* const sink = gst_element_factory_make("fakesink", nullptr);
        gst_bin_add(GST_BIN(self->pipeline_), sink);
        gst_element_sync_state_with_parent(sink);
        GstPad* const target = gst_element_get_static_pad(sink, "sink");
        gst_pad_link(pad, target);
        gst_object_unref(target);
        // The camera's media arrive: it plays now, and accepts audio.
        if (self->microphone_ == nullptr)
        {
            self->fail("the camera offers no back channel");
            return;
        }
        gst_element_set_state(self->microphone_, GST_STATE_PLAYING);
    }

    static GstFlowReturn onPacket(GstElement* packets, Talk* self)
    {
        GstSample* sample = nullptr;
        GstFlowReturn result = GST_FLOW_OK;
        g_signal_emit_by_name(packets, "pull-sample", &sample);
        if (sample == nullptr)
        {
            return GST_FLOW_EOS;
        }
        // It takes ownership of the sample.
        g_signal_emit_by_name(self->source_, "push-backchannel-buffer", self->channel_, sample, &result);
        return result;
    }

    static void onError(GstBus*, GstMessage* message, Talk* self)
    {
        GError* error = nullptr;
        gst_message_parse_error(message, &error, nullptr);
        self->fail(error->message);
        g_error_free(error);
    }

    // The last packet is to be played too.
    static void onEnd(GstBus*, GstMessage*, Talk* self)
    {
        g_timeout_add(300, stop, self);
    }

    static gboolean stop(gpointer self)
    {
        g_main_loop_quit(static_cast<Talk*>(self)->loop_);
        return G_SOURCE_REMOVE;
    }

    const std::string file_;
    GMainLoop* const loop_;
    GstElement* const pipeline_;
    GstElement* const source_;
    GstElement* microphone_ = nullptr;
    guint channel_ = 0;
    std::string problem_;
};

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 3 && argc != 4)
    {
        std::cerr << "usage: gst_talk URL FILE [udp|tcp]\n";
        return 2;
    }
    gst_init(nullptr, nullptr);
    const std::string problem = Talk(argv[1], argv[2], argc == 4 ? argv[3] : "udp").run();
    if (!problem.empty())
    {
        std::cerr << problem << "\n";
        return 1;
    }
    return 0;
}
