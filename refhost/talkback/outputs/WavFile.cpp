#include "refhost/talkback/outputs/WavFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <limits>

#include "refhost/base/ByteOrder.h"

namespace refhost
{
namespace
{

constexpr std::size_t headerSize = 44;
constexpr std::size_t formatChunkSize = 16;
/// Sizes in the header have 32 bits; the outer one includes most of the header.
constexpr std::uint64_t maxDataBytes = std::numeric_limits<std::uint32_t>::max() - headerSize;
using Header = std::array<std::uint8_t, headerSize>;

Header makeHeader(const PcmFormat& format, std::uint32_t dataBytes)
{
    constexpr std::uint16_t linearPcm = 1;
    constexpr std::uint16_t bitsPerSample = 16;
    const auto rate = static_cast<std::uint32_t>(format.sampleRate);
    const auto channels = static_cast<std::uint16_t>(format.channels);
    const std::uint32_t frameSize = std::uint32_t{channels} * bitsPerSample / 8;
    Header header{};
    std::memcpy(header.data(), "RIFF", 4);
    writeLittle32(&header[4], static_cast<std::uint32_t>(headerSize) - 8 + dataBytes);
    std::memcpy(header.data() + 8, "WAVEfmt ", 8);
    writeLittle32(&header[16], formatChunkSize);
    writeLittle16(&header[20], linearPcm);
    writeLittle16(&header[22], channels);
    writeLittle32(&header[24], rate);
    writeLittle32(&header[28], rate * frameSize);
    writeLittle16(&header[32], static_cast<std::uint16_t>(frameSize));
    writeLittle16(&header[34], bitsPerSample);
    std::memcpy(header.data() + 36, "data", 4);
    writeLittle32(&header[40], dataBytes);
    return header;
}

bool writeWhole(int file, const std::uint8_t* data, std::size_t size, std::uint64_t at)
{
    while (size > 0)
    {
        const ssize_t written = pwrite(file, data, size, static_cast<off_t>(at));
        if (written < 0 && errno == EINTR)
        {
            continue;
        }
        if (written <= 0)
        {
            return false;
        }
        data += written;
        size -= static_cast<std::size_t>(written);
        at += static_cast<std::uint64_t>(written);
    }
    return true;
}

}  // namespace

WavFile::~WavFile()
{
    close();
}

void WavFile::close()
{
    file_.reset();
}

std::size_t WavFile::frameSize() const
{
    return static_cast<std::size_t>(format_.channels) * sizeof(std::int16_t);
}

bool WavFile::open(const std::string& path, const PcmFormat& format, std::string& problem)
{
    close();
    format_ = format;
    frames_ = 0;
    // Non-blocking: do not wait for a named pipe.
    file_ = Descriptor(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NONBLOCK, 0644));
    if (!file_)
    {
        problem = std::strerror(errno);
        return false;
    }
    if (prepare(problem))
    {
        return true;
    }
    close();
    return false;
}

bool WavFile::prepare(std::string& problem)
{
    struct stat status = {};
    if (fstat(file_.get(), &status) != 0 || !S_ISREG(status.st_mode))
    {
        problem = "it is no ordinary file";
        return false;
    }
    if (status.st_size > 0)
    {
        return readHeader(static_cast<std::uint64_t>(status.st_size), problem);
    }
    if (!writeHeader())
    {
        problem = std::strerror(errno);
        return false;
    }
    return true;
}

bool WavFile::readHeader(std::uint64_t size, std::string& problem)
{
    Header found{};
    const ssize_t bytes = pread(file_.get(), found.data(), found.size(), 0);
    Header own = makeHeader(format_, 0);
    // Ignore the two sizes: the length of the file counts.
    std::copy_n(found.begin() + 4, 4, own.begin() + 4);
    std::copy_n(found.begin() + 40, 4, own.begin() + 40);
    if (bytes != static_cast<ssize_t>(headerSize) || own != found)
    {
        problem = "it is there and is no WAV file of " + std::to_string(format_.sampleRate) + " Hz and " +
                  std::to_string(format_.channels) + " channels, so it is left alone";
        return false;
    }
    frames_ = (size - headerSize) / frameSize();
    if (frames_ * frameSize() >= maxDataBytes / frameSize() * frameSize())
    {
        problem = "it is as long as a WAV file can be";
        return false;
    }
    return true;
}

bool WavFile::writeHeader() const
{
    const Header header = makeHeader(format_, static_cast<std::uint32_t>(frames_ * frameSize()));
    return writeWhole(file_.get(), header.data(), header.size(), 0);
}

bool WavFile::write(std::uint64_t at, const std::vector<std::int16_t>& samples)
{
    const std::size_t bytes = samples.size() * sizeof(std::int16_t);
    const std::uint64_t begin = at * frameSize();
    if (!file_ || begin + bytes > maxDataBytes)
    {
        return false;
    }
    // WAV is little-endian, like every machine supported.
    if (!writeWhole(file_.get(), reinterpret_cast<const std::uint8_t*>(samples.data()), bytes,
                    headerSize + begin))
    {
        return false;
    }
    frames_ = std::max(frames_, at + samples.size() / static_cast<std::size_t>(format_.channels));
    return writeHeader();
}

bool WavFile::extend(std::uint64_t frames)
{
    if (frames <= frames_)
    {
        return true;
    }
    // The extension reads as zeros and takes no room on the disk.
    if (!file_ || frames * frameSize() > maxDataBytes ||
        ftruncate(file_.get(), static_cast<off_t>(headerSize + frames * frameSize())) != 0)
    {
        return false;
    }
    frames_ = frames;
    return writeHeader();
}

}  // namespace refhost
