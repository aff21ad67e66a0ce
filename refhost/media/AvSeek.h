#pragma once
// Tested by tests/refhost/recording/SegmentWriter_test.cpp, tests/refhost/capture/MediaFile_test.cpp.

#include <cstdint>

namespace refhost
{

/// What libavformat's seek callback of a file does. \see avio_alloc_context()
/// \param position  where the file is read or written next; changed where the call asks for it
/// \param size      of the file
/// \returns the new position, or the size where the call asks for that; a negative AVERROR otherwise
std::int64_t avSeek(std::int64_t& position, std::int64_t size, std::int64_t offset, int whence);

}  // namespace refhost
