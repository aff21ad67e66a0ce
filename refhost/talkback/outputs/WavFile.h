#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "refhost/base/Descriptor.h"
#include "refhost/talkback/outputs/PcmFormat.h"

namespace refhost
{

/// A growing WAV file of 16-bit samples. Its header is correct after each operation, so that the file is
/// readable at any time, even if the process crashes.
///
/// Threads: one at a time. Every operation waits for the disk.
class WavFile
{
public:
    WavFile() = default;
    ~WavFile();
    WavFile(const WavFile&) = delete;
    WavFile& operator=(const WavFile&) = delete;

    /// Opens the file to append to it, or creates it.
    /// \param[out] problem  why it failed; the file is unchanged then
    /// \returns true when it is open
    bool open(const std::string& path, const PcmFormat& format, std::string& problem);
    void close();

    /// Frames in the file.
    std::uint64_t frames() const
    {
        return frames_;
    }

    /// Writes from frame number `at` on; fills a gap before it with silence.
    /// \returns false when the disk or the format's 4 GiB are full; earlier frames are kept
    bool write(std::uint64_t at, const std::vector<std::int16_t>& samples);
    /// Extends the file to `frames` with silence, if shorter. \returns false on failure
    bool extend(std::uint64_t frames);

private:
    bool prepare(std::string& problem);
    bool readHeader(std::uint64_t size, std::string& problem);
    bool writeHeader() const;
    std::size_t frameSize() const;

    Descriptor file_;
    PcmFormat format_;
    std::uint64_t frames_ = 0;
};

}  // namespace refhost
