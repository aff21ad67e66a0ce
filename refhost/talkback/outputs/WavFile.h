#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "refhost/base/Descriptor.h"
#include "refhost/talkback/outputs/PcmFormat.h"

namespace refhost
{

/// A WAV file of 16-bit samples that grows. Its header is right after each operation, so that the file can be
/// read at any time and after any end of the process.
///
/// Threads: one at a time. Every operation waits for the disk.
class WavFile
{
public:
    WavFile() = default;
    ~WavFile();
    WavFile(const WavFile&) = delete;
    WavFile& operator=(const WavFile&) = delete;

    /// Opens the file, to go on at its end, or makes it.
    /// \param[out] problem  why not; the file is as it was then
    /// \returns true when it is open
    bool open(const std::string& path, const PcmFormat& format, std::string& problem);
    void close();

    /// Frames in the file.
    std::uint64_t frames() const
    {
        return frames_;
    }

    /// Writes behind frame number `at`; silence is put between what there is and that.
    /// \returns false when the disk or the format's 4 GiB are full; the frames before are kept
    bool write(std::uint64_t at, const std::vector<std::int16_t>& samples);
    /// Makes the file at least `frames` long, with silence. \returns false when that failed
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
