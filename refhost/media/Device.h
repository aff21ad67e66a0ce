#pragma once
// Tested by tests/refhost/description/DescriptionReadiness_test.cpp.

#include <memory>

#include "refhost/media/StreamSource.h"

namespace refhost
{

class RecordingIndex;

/// Gives the classes of the host contract access to this process's streams and recordings. Threads: any.
class Device
{
public:
    /// Sets the streams: before the first request, and to null after the last. Tests set their own.
    static void setStreams(std::shared_ptr<StreamDirectory> streams);

    /// \returns null before setStreams()
    static std::shared_ptr<StreamDirectory> streams();

    /// Declares that recordings are being opened: requests for recorded media wait until setRecordings(),
    /// which ChangeSignal announces.
    static void expectRecordings();
    static bool recordingsExpected();

    /// Sets the recordings; null when there are none, and again before the process ends.
    static void setRecordings(std::shared_ptr<RecordingIndex> recordings);

    /// \returns null when there are no recordings
    static std::shared_ptr<RecordingIndex> recordings();
};

}  // namespace refhost
