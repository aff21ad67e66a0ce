#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace refhost
{
namespace test
{

using Samples = std::vector<std::int16_t>;
using Bytes = std::vector<std::uint8_t>;

constexpr double pi = 3.14159265358979323846;

/// `frames` samples of a tone.
inline Samples tone(double hertz, int rate, std::size_t frames, double amplitude = 10000)
{
    Samples samples;
    for (std::size_t i = 0; i < frames; ++i)
    {
        samples.push_back(static_cast<std::int16_t>(
            std::lrint(amplitude * std::sin(2 * pi * hertz * static_cast<double>(i) / rate))));
    }
    return samples;
}

/// Amplitude of one frequency in one channel's samples (Goertzel's algorithm).
inline double amplitudeAt(double hertz, int rate, const Samples& samples, std::size_t begin,
                          std::size_t count)
{
    double cosine = 0;
    double sine = 0;
    for (std::size_t i = 0; i < count; ++i)
    {
        const double angle = 2 * pi * hertz * static_cast<double>(i) / rate;
        cosine += samples.at(begin + i) * std::cos(angle);
        sine += samples.at(begin + i) * std::sin(angle);
    }
    return 2 * std::sqrt(cosine * cosine + sine * sine) / static_cast<double>(count);
}

inline double rms(const Samples& samples, std::size_t begin, std::size_t count)
{
    double sum = 0;
    for (std::size_t i = begin; i < begin + count; ++i)
    {
        sum += static_cast<double>(samples.at(i)) * samples.at(i);
    }
    return std::sqrt(sum / static_cast<double>(count));
}

/// The largest step from one sample to the next.
inline int steepest(const Samples& samples)
{
    int found = 0;
    for (std::size_t i = 1; i < samples.size(); ++i)
    {
        found = std::max(found, std::abs(samples[i] - samples[i - 1]));
    }
    return found;
}

inline void writeFile(const std::string& path, const void* data, std::size_t size)
{
    std::ofstream(path, std::ios::binary)
        .write(static_cast<const char*>(data), static_cast<std::streamsize>(size));
}

inline Bytes readFile(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(file), {});
}

/// Native 16-bit samples of a file's bytes.
inline Samples samplesOf(const Bytes& bytes)
{
    Samples samples;
    for (std::size_t i = 0; i + 1 < bytes.size(); i += 2)
    {
        samples.push_back(static_cast<std::int16_t>(bytes[i] | (bytes[i + 1] << 8)));
    }
    return samples;
}

/// Runs ffmpeg with these arguments. \returns true when it succeeded
inline bool ffmpeg(const std::string& arguments)
{
    return std::system(("ffmpeg -nostdin -v error -y " + arguments).c_str()) == 0;
}

}  // namespace test
}  // namespace refhost
