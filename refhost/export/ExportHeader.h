#pragma once
// Tested by tests/refhost/export/Mp4Export_test.cpp.

#include <cstdint>
#include <vector>

#include "refhost/export/ExportPlan.h"
#include "refhost/mp4/MovieBoxes.h"
#include "refhost/mp4/Mp4Writer.h"

namespace refhost
{

/// Writes what comes in front of the media of an exported file: its type, the movie box, and the head of the
/// media data. Threads: one at a time.
class ExportHeader
{
public:
    /// Samples in a row of one track, segment and format.
    struct Chunk
    {
        std::uint64_t offset = 0;  ///< in the file
        std::uint32_t first = 0;   ///< sample of its track
        std::uint32_t count = 0;
        std::uint32_t segment = 0;
        std::uint32_t description = 0;
        bool video = false;
    };

    /// \param chunks     in the order of the file, with offsets from the first one; from the file's begin
    ///                   afterwards
    /// \param mediaSize  bytes of all of them
    static std::vector<std::uint8_t> write(const ExportPlan& plan, std::vector<Chunk>& chunks,
                                           std::uint64_t mediaSize);

private:
    ExportHeader(const ExportPlan& plan, const std::vector<Chunk>& chunks) : plan_(plan), chunks_(chunks) {}
    void addMovie();
    void addTrack(bool video);
    void addEdits(const ExportTrack::Edit& edit);
    void addMedia(const ExportTrack& track, const MovieBoxes::Track& boxes);
    void addDescriptions(const ExportTrack& track);
    void addSteps(const char* type, const std::vector<ExportTrack::Step>& steps);
    void addKeys(const ExportTrack& track);
    void addChunkTable(const ExportTrack& track);
    void addSizes(const ExportTrack& track);
    void addOffsets(const ExportTrack& track);

    const ExportPlan& plan_;
    const std::vector<Chunk>& chunks_;
    Mp4Writer out_;
    std::size_t videoOffsetsAt_ = 0;  // where the offsets of its chunks stand
    std::size_t audioOffsetsAt_ = 0;
};

}  // namespace refhost
