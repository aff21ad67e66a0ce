#pragma once

#include <gst/gst.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "refhost/base/Times.h"
#include "refhost/media/GstHandles.h"
#include "refhost/playback/RecordingDirectory.h"
#include "tests/refhost/rtp/RtpFakes.h"

namespace refhost
{
namespace test
{

/// A directory of segments that a test adds.
class ListedRecordings : public RecordingDirectory
{
public:
    std::atomic<bool> complete{true};

    bool isComplete() const override
    {
        return complete;
    }

    void add(const RecordedSegment& segment)
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        segments_.push_back(segment);
    }

    void change(const RecordedSegment& segment)
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        for (RecordedSegment& other : segments_)
        {
            other = other.id == segment.id ? segment : other;
        }
    }

    std::optional<int> streamOf(int cameraId, WallTime begin, WallTime end) const override
    {
        const auto found = find(cameraId, 0, begin, end, 1, SegmentPlace());
        return found.empty() ? std::nullopt : std::optional<int>(0);
    }

    std::vector<RecordedSegment> find(int cameraId, int streamId, WallTime begin, WallTime end, int max,
                                      const SegmentPlace& after) const override
    {
        const auto placeOf = [](const RecordedSegment& segment)
        { return std::make_pair(segment.epoch, segment.begin); };
        const std::lock_guard<std::mutex> guard(mutex_);
        std::vector<RecordedSegment> found;
        for (const RecordedSegment& segment : segments_)
        {
            if (segment.cameraId == cameraId && segment.streamId == streamId && segment.begin < end &&
                segment.end() > begin && placeOf(segment) > std::make_pair(after.epoch, after.begin))
            {
                found.push_back(segment);
            }
        }
        std::sort(found.begin(), found.end(),
                  [&](const RecordedSegment& left, const RecordedSegment& right)
                  { return placeOf(left) < placeOf(right); });
        found.resize(std::min(found.size(), static_cast<std::size_t>(max)));
        return found;
    }

private:
    mutable std::mutex mutex_;
    std::vector<RecordedSegment> segments_;
};

/// Real Matroska files of 25 frames a second, a key frame each second, and PCMA audio of 20 ms a block,
/// made by GStreamer in a directory that goes with the fixture. The recording starts at second 0.
class RecordedMediaTest : public testing::Test
{
protected:
    static constexpr const char* frames =
        "x264enc tune=zerolatency speed-preset=ultrafast key-int-max=25 bitrate=200 ! h264parse";

    static void SetUpTestSuite()
    {
        gst_init(nullptr, nullptr);
    }

    RecordedMediaTest()
    {
        std::string name = (std::filesystem::temp_directory_path() / "playback-XXXXXX").string();
        EXPECT_NE(mkdtemp(name.data()), nullptr);
        directory_ = name;
    }

    ~RecordedMediaTest() override
    {
        std::error_code ignored;
        std::filesystem::remove_all(directory_, ignored);
    }

    static WallTime at(double seconds)
    {
        return wallTimeOfUnix(1'600'000'000) + durationOf(std::chrono::duration<double>(seconds));
    }

    static double secondsAt(WallTime date)
    {
        return secondsOf(date - at(0));
    }

    /// Makes a file of so many whole seconds. \returns its path
    std::string makeFile(int seconds, const std::string& video = frames, const std::string& audio = "alawenc")
    {
        std::string path = directory_ + "/" + std::to_string(++files_) + ".mkv";
        std::string line = "matroskamux name=mux ! filesink location=" + path;
        if (!video.empty())
        {
            line += " videotestsrc pattern=ball num-buffers=" + std::to_string(25 * seconds) +
                    " ! video/x-raw,format=I420,width=160,height=120,framerate=25/1 ! " + video +
                    " ! queue ! mux.";
        }
        if (!audio.empty())
        {
            line += " audiotestsrc samplesperbuffer=160 num-buffers=" + std::to_string(50 * seconds) +
                    " ! audio/x-raw,rate=8000,channels=1 ! " + audio + " ! queue ! mux.";
        }
        run(line);
        return path;
    }

    /// Adds a segment of a file.
    RecordedSegment addFile(const std::string& path, double begin, double seconds, bool closed = true,
                            int epoch = 0)
    {
        RecordedSegment segment;
        segment.id = ++segments_;
        segment.cameraId = 1;
        segment.epoch = epoch;
        segment.begin = at(begin);
        segment.duration = durationOf(std::chrono::duration<double>(seconds));
        segment.path = path;
        segment.closed = closed;
        recordings->add(segment);
        return segment;
    }

    RecordedSegment addSegment(double begin, int seconds, int epoch = 0)
    {
        return addFile(makeFile(seconds), begin, seconds, true, epoch);
    }

    /// Truncates a file to a share of its bytes.
    static void cut(const std::string& path, double share)
    {
        const auto size = static_cast<double>(std::filesystem::file_size(path));
        std::filesystem::resize_file(path, static_cast<std::uintmax_t>(size * share));
    }

    /// Overwrites some bytes of the sequence parameter set in a file's header.
    static void corruptParameterSet(const std::string& path, std::size_t from, const std::string& with)
    {
        std::fstream file(path, std::ios::binary | std::ios::in | std::ios::out);
        std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
        // The record starts with its version and the three bytes that the set repeats behind its type.
        std::size_t at = bytes.find("\x63\xA2");  // CodecPrivate
        ASSERT_NE(at, std::string::npos);
        at = bytes.find('\x67', at);
        ASSERT_NE(at, std::string::npos);
        file.clear();
        file.seekp(static_cast<std::streamoff>(at + from));
        file << with;
    }

    static void run(const std::string& line)
    {
        GError* problem = nullptr;
        GstElement* pipeline = gst_parse_launch(line.c_str(), &problem);
        ASSERT_EQ(problem, nullptr) << problem->message;
        gst_element_set_state(pipeline, GST_STATE_PLAYING);
        GstBus* bus = gst_element_get_bus(pipeline);
        const GstValuePtr<GstMessage> message(gst_bus_timed_pop_filtered(
            bus, 20 * GST_SECOND, static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR)));
        gst_object_unref(bus);
        gst_element_set_state(pipeline, GST_STATE_NULL);
        gst_object_unref(pipeline);
        ASSERT_TRUE(message);
        ASSERT_EQ(GST_MESSAGE_TYPE(message.get()), GST_MESSAGE_EOS) << line;
    }

    std::string directory_;
    std::shared_ptr<ListedRecordings> recordings = std::make_shared<ListedRecordings>();
    ManualClock clock;

private:
    int files_ = 0;
    int segments_ = 0;
};

}  // namespace test
}  // namespace refhost
