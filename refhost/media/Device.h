#pragma once
// Tested by tests/refhost/description/DescriptionReadiness_test.cpp.

#include <memory>

#include "refhost/media/StreamSource.h"

namespace refhost
{

class RecordingIndex;

/// Where the classes of the host contract find this process's streams and recordings.
class Device
{
public:
    /// Sets the streams; before the first request, and null again after the last. A test sets its own.
    static void setStreams(std::shared_ptr<StreamDirectory> streams);

    /// \returns null before setStreams()
    static std::shared_ptr<StreamDirectory> streams();

    /// Says that recordings are being looked for: who asks for one meanwhile is to wait until
    /// setRecordings(), which ChangeSignal tells.
    static void expectRecordings();
    static bool recordingsExpected();

    /// Sets what was recorded; null where there are no recordings, and again before the process ends.
    static void setRecordings(std::shared_ptr<RecordingIndex> recordings);

    /// \returns null when there are no recordings
    static std::shared_ptr<RecordingIndex> recordings();
};

}  // namespace refhost
