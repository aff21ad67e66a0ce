#include "refhost/recording/RecordingIndex.h"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <system_error>
#include <utility>

#include "refhost/recording/IndexFile.h"
#include "refhost/recording/IndexStatements.h"
#include "refhost/recording/RecordingFolder.h"
#include "refhost/recording/SqliteQuery.h"

namespace refhost
{
namespace
{

/// Whether an entry's path, below the directory, stays there whoever wrote it.
bool staysInside(const std::string& path)
{
    const std::filesystem::path parts(path);
    return !path.empty() && parts.is_relative() &&
           std::none_of(parts.begin(), parts.end(),
                        [](const std::filesystem::path& part)
                        { return part.empty() || part == "." || part == ".."; });
}

}  // namespace

std::shared_ptr<RecordingIndex> RecordingIndex::open(const std::string& path, std::string& error)
{
    const std::string directory = RecordingFolder::withoutSlash(path);
    if (!RecordingFolder::make(directory, error))
    {
        return nullptr;
    }
    std::string corruption;
    if (SqliteDatabase::isCorrupt(IndexFile::pathIn(directory), corruption))
    {
        IndexFile::setAside(directory, corruption);
    }
    std::shared_ptr<RecordingIndex> index(new RecordingIndex(directory));
    if (!index->openWriting(error) || !index->openReading(error))
    {
        error = IndexFile::pathIn(directory) + ": " + error;
        return nullptr;
    }
    return index;
}

std::shared_ptr<RecordingIndex> RecordingIndex::openToRead(const std::string& path, std::string& error)
{
    const std::string directory = RecordingFolder::withoutSlash(path);
    std::shared_ptr<RecordingIndex> index(new RecordingIndex(directory));
    if (!index->openReading(error))
    {
        error = IndexFile::pathIn(directory) + ": " + error;
        return nullptr;
    }
    return index;
}

RecordingIndex::~RecordingIndex() = default;

bool RecordingIndex::openWriting(std::string& error)
{
    const MutexLock guard(writingMutex_);
    IndexFile::restrictAccess(directory_);
    return updates_.open(IndexFile::pathIn(directory_), error);
}

bool RecordingIndex::openReading(std::string& error)
{
    const MutexLock guard(readingMutex_);
    return queries_.open(IndexFile::pathIn(directory_), error);
}

std::vector<RecordedSegment> RecordingIndex::find(int cameraId, int streamId, WallTime begin, WallTime end,
                                                  int max, const SegmentPlace& after) const
{
    std::vector<RecordedSegment> found;
    std::optional<int> epoch = after.epoch < 0 ? epochAfter(cameraId, streamId, -1) : after.epoch;
    for (; epoch && max != 0; epoch = epochAfter(cameraId, streamId, *epoch))
    {
        const WallTime since = *epoch == after.epoch ? after.begin : WallTime::min();
        std::vector<RecordedSegment> ofEpoch =
            segments(&IndexQueries::find, cameraId, streamId, *epoch, begin, end, since, max);
        max -= max < 0 ? 0 : static_cast<int>(ofEpoch.size());
        std::move(ofEpoch.begin(), ofEpoch.end(), std::back_inserter(found));
    }
    return found;
}

std::optional<int> RecordingIndex::epochAfter(int cameraId, int streamId, int epoch) const
{
    const MutexLock guard(readingMutex_);
    SqliteQuery query(*queries_.epochAfter, cameraId, streamId, epoch);
    const bool found = query.next() && !query.isNull(0);
    readable_ = query.succeeded();
    return found ? std::make_optional(static_cast<int>(query.number(0))) : std::nullopt;
}

std::optional<int> RecordingIndex::streamOf(int cameraId, WallTime begin, WallTime end) const
{
    std::optional<RecordedStream> stream = streamAfter({cameraId, -1});
    while (stream && stream->cameraId == cameraId)
    {
        if (!find(cameraId, stream->streamId, begin, end, 1).empty())
        {
            return stream->streamId;
        }
        stream = streamAfter(*stream);
    }
    return std::nullopt;
}

std::vector<RecordedStream> RecordingIndex::streams() const
{
    std::vector<RecordedStream> found;
    for (std::optional<RecordedStream> next = streamAfter({-1, -1}); next; next = streamAfter(*next))
    {
        found.push_back(*next);
    }
    return found;
}

std::optional<RecordedStream> RecordingIndex::streamAfter(const RecordedStream& stream) const
{
    const MutexLock guard(readingMutex_);
    SqliteQuery query(*queries_.streamAfter, stream.cameraId, stream.streamId);
    const bool found = query.next();
    readable_ = query.succeeded();
    if (!found)
    {
        return std::nullopt;
    }
    return RecordedStream{static_cast<int>(query.number(0)), static_cast<int>(query.number(1))};
}

std::vector<RecordedInterval> RecordingIndex::recordings(int cameraId, int streamId) const
{
    std::vector<RecordedInterval> intervals;
    int epoch = 0;
    for (const RecordedSegment& segment : segments(&IndexQueries::ofStream, cameraId, streamId))
    {
        const bool other = std::exchange(epoch, segment.epoch) != segment.epoch;
        if (intervals.empty() || other || segment.begin > intervals.back().end + minGap)
        {
            intervals.push_back({segment.begin, segment.begin, false});
        }
        RecordedInterval& interval = intervals.back();
        interval.end = std::max(interval.end, segment.end());
        interval.growing = !segment.closed;
    }
    std::stable_sort(intervals.begin(), intervals.end(),
                     [](const RecordedInterval& a, const RecordedInterval& b) { return a.begin < b.begin; });
    return intervals;
}

std::vector<RecordedSegment> RecordingIndex::all() const
{
    return segments(&IndexQueries::all);
}

std::vector<RecordedSegment> RecordingIndex::unclosed() const
{
    return segments(&IndexQueries::unclosed);
}

std::optional<RecordedSegment> RecordingIndex::oldestClosed(const std::set<std::int64_t>& besides,
                                                            WallTime since, std::optional<int> camera) const
{
    const MutexLock guard(readingMutex_);
    if (camera)
    {
        SqliteQuery query(*queries_.oldestClosedOfCamera, since, *camera);
        return firstOf(query, besides);
    }
    SqliteQuery query(*queries_.oldestClosed, since);
    return firstOf(query, besides);
}

std::optional<RecordedSegment> RecordingIndex::firstBefore(WallTime before,
                                                           const std::set<std::int64_t>& besides,
                                                           std::optional<int> camera) const
{
    const MutexLock guard(readingMutex_);
    if (camera)
    {
        SqliteQuery query(*queries_.firstBeforeOfCamera, before, *camera);
        return firstOf(query, besides);
    }
    SqliteQuery query(*queries_.firstBefore, before);
    return firstOf(query, besides);
}

std::optional<RecordedSegment> RecordingIndex::firstOf(SqliteQuery& query,
                                                       const std::set<std::int64_t>& besides) const
{
    while (query.next())
    {
        if (besides.count(query.number(SegmentColumn::id)) == 0 &&
            staysInside(query.text(SegmentColumn::path)))
        {
            return segmentOf(query);
        }
    }
    return std::nullopt;
}

std::optional<WallTime> RecordingIndex::beginAfter(std::int64_t id, WallTime since) const
{
    const MutexLock guard(readingMutex_);
    SqliteQuery query(*queries_.beginAfter, id, since);
    return query.next() ? std::make_optional(query.date(0)) : std::nullopt;
}

std::optional<WallTime> RecordingIndex::newestBegin() const
{
    const MutexLock guard(readingMutex_);
    SqliteQuery query(*queries_.newestBegin);
    return query.next() ? std::make_optional(query.date(0)) : std::nullopt;
}

std::int64_t RecordingIndex::count() const
{
    const MutexLock guard(readingMutex_);
    SqliteQuery query(*queries_.count);
    return query.next() ? query.number(0) : 0;
}

std::int64_t RecordingIndex::totalBytes() const
{
    const MutexLock guard(readingMutex_);
    SqliteQuery query(*queries_.totalBytes);
    return query.next() ? query.number(0) : 0;
}

std::int64_t RecordingIndex::bytesOf(int cameraId) const
{
    const MutexLock guard(readingMutex_);
    SqliteQuery query(*queries_.bytesOfCamera, cameraId);
    return query.next() ? query.number(0) : 0;
}

std::string RecordingIndex::inside(const std::string& path) const
{
    return std::filesystem::path(path).lexically_relative(directory_).generic_string();
}

bool RecordingIndex::has(const std::string& path) const
{
    const MutexLock guard(readingMutex_);
    SqliteQuery query(*queries_.has, inside(path));
    return query.next();
}

std::optional<std::int64_t> RecordingIndex::add(const RecordedSegment& segment)
{
    const MutexLock guard(writingMutex_);
    if (!write(updates_.add, segment))
    {
        return std::nullopt;
    }
    return updates_.database->lastInsertedId();
}

bool RecordingIndex::enter(const RecordedSegment& segment)
{
    return apply({{segment, false}});
}

bool RecordingIndex::apply(const std::vector<Change>& changes)
{
    const MutexLock guard(writingMutex_);
    if (changes.size() == 1)
    {
        // A transaction of its own.
        return applyOne(changes.front());
    }
    const bool done =
        execute("BEGIN IMMEDIATE") &&
        std::all_of(changes.begin(), changes.end(),
                    [this](const Change& change) OV_REQUIRES(writingMutex_) { return applyOne(change); }) &&
        execute("COMMIT");
    if (!done && updates_.database)
    {
        // The failure that is reported is the one before. SQLite may have rolled back by itself.
        updates_.database->execute("ROLLBACK");
    }
    return done;
}

bool RecordingIndex::applyOne(const Change& change)
{
    return change.removed ? write(updates_.removePath, inside(change.segment.path))
                          : write(updates_.enter, change.segment);
}

bool RecordingIndex::execute(const char* statement)
{
    const bool done = updates_.database && updates_.database->execute(statement);
    if (!done && updates_.database)
    {
        full_ = updates_.database->isFull();
        error_ = IndexFile::pathIn(directory_) + ": " + updates_.database->lastError();
    }
    return done;
}

bool RecordingIndex::close(std::int64_t id, Duration duration, std::int64_t bytes)
{
    const MutexLock guard(writingMutex_);
    return write(updates_.close, duration, bytes, id);
}

bool RecordingIndex::remove(std::int64_t id)
{
    const MutexLock guard(writingMutex_);
    return write(updates_.remove, id);
}

bool RecordingIndex::foundDiskFull() const
{
    const MutexLock guard(writingMutex_);
    return full_;
}

std::string RecordingIndex::lastError() const
{
    const MutexLock guard(writingMutex_);
    return error_;
}

template <typename... Parameters>
std::vector<RecordedSegment> RecordingIndex::segments(SqliteDatabase::Statement IndexQueries::*statement,
                                                      const Parameters&... parameters) const
{
    const MutexLock guard(readingMutex_);
    std::vector<RecordedSegment> found;
    SqliteQuery query(*(queries_.*statement), parameters...);
    while (query.next())
    {
        if (staysInside(query.text(SegmentColumn::path)))
        {
            found.push_back(segmentOf(query));
        }
    }
    readable_ = query.succeeded();
    return found;
}

RecordedSegment RecordingIndex::segmentOf(const SqliteQuery& row) const
{
    RecordedSegment segment;
    segment.id = row.number(SegmentColumn::id);
    segment.cameraId = static_cast<int>(row.number(SegmentColumn::camera));
    segment.streamId = static_cast<int>(row.number(SegmentColumn::stream));
    segment.begin = row.date(SegmentColumn::begin);
    segment.duration = row.span(SegmentColumn::duration);
    segment.bytes = row.number(SegmentColumn::bytes);
    segment.path = directory_ + "/" + row.text(SegmentColumn::path);
    segment.closed = row.number(SegmentColumn::closed) != 0;
    segment.epoch = static_cast<int>(row.number(SegmentColumn::epoch));
    return segment;
}

bool RecordingIndex::write(const SqliteDatabase::Statement& statement, const RecordedSegment& segment)
{
    const std::string path = inside(segment.path);
    if (!staysInside(path))
    {
        error_ = segment.path + " does not lie below " + directory_;
        return false;
    }
    return write(statement, segment.cameraId, segment.streamId, segment.begin, segment.duration,
                 segment.bytes, path, segment.closed);
}

template <typename... Parameters>
bool RecordingIndex::write(const SqliteDatabase::Statement& statement, const Parameters&... parameters)
{
    if (!statement)
    {
        error_ = "this index was opened to be read";
        return false;
    }
    SqliteQuery query(*statement, parameters...);
    const bool done = query.run();
    full_ = !done && updates_.database->isFull();
    if (done)
    {
        return true;
    }
    error_ = IndexFile::pathIn(directory_) + ": " + updates_.database->lastError();
    return false;
}

}  // namespace refhost
