#pragma once
// Tested by tests/refhost/recording/RecordingIndex_test.cpp.

#include <memory>
#include <string>

#include "refhost/recording/SqliteDatabase.h"

namespace refhost
{

/// Columns of the statements that return segments.
namespace SegmentColumn
{
enum : int
{
    id,
    camera,
    stream,
    begin,
    duration,
    bytes,
    path,  ///< below the directory of the recordings
    closed,
    epoch
};
}  // namespace SegmentColumn

/// The prepared statements that read the index of recordings, with their connection. Parameters are bound in
/// the order of their description.
///
/// Threads: one at a time.
struct IndexQueries
{
    /// \param path        of the database, which must exist and have the present version
    /// \param[out] error  why not, in plain words
    /// \returns false with `error` set when it cannot be read
    bool open(const std::string& path, std::string& error);

    std::unique_ptr<SqliteDatabase> database;
    // Segments.
    SqliteDatabase::Statement
        find;  ///< of camera, stream and epoch in [begin, end), from a begin on, max number
    SqliteDatabase::Statement ofStream;              ///< of camera and stream, by epoch and begin
    SqliteDatabase::Statement all;                   ///< by begin
    SqliteDatabase::Statement unclosed;              ///< by begin
    SqliteDatabase::Statement oldestClosed;          ///< from a begin on, by begin
    SqliteDatabase::Statement oldestClosedOfCamera;  ///< the same of one camera, which comes second
    SqliteDatabase::Statement firstBefore;          ///< closed ones that begin earlier, in the order of entry
    SqliteDatabase::Statement firstBeforeOfCamera;  ///< the same of one camera, which comes second
    // Single values.
    SqliteDatabase::Statement epochAfter;   ///< of camera and stream: the next epoch, or NULL
    SqliteDatabase::Statement streamAfter;  ///< the camera and stream behind these two
    SqliteDatabase::Statement
        beginAfter;  ///< of the first entered after an id that begins at a time or later
    SqliteDatabase::Statement newestBegin;
    SqliteDatabase::Statement count;
    SqliteDatabase::Statement totalBytes;
    SqliteDatabase::Statement bytesOfCamera;
    SqliteDatabase::Statement has;  ///< a row where there is a segment of a path
};

/// The prepared statements that write to the index of recordings, with their connection.
///
/// Threads: one at a time.
struct IndexUpdates
{
    /// Makes or upgrades the tables.
    /// \param path        of the database, which is made when it is missing
    /// \param[out] error  why not, in plain words
    /// \returns false with `error` set when it cannot be written to
    bool open(const std::string& path, std::string& error);

    std::unique_ptr<SqliteDatabase> database;
    // Both take camera, stream, begin, duration, bytes, path and closed.
    SqliteDatabase::Statement add;  ///< in the first epoch that has nothing at its time
    SqliteDatabase::Statement
        enter;  ///< in the stream's present epoch, or a new one; updates that of the path
    SqliteDatabase::Statement removePath;
    SqliteDatabase::Statement close;   ///< with duration and bytes: the segment of an id
    SqliteDatabase::Statement remove;  ///< that of an id
};

}  // namespace refhost
