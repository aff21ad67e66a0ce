#pragma once
// Tested by tests/refhost/talkback/outputs/OutputPlayer_test.cpp.

namespace refhost
{

/// What the device's audio output takes: interleaved signed 16-bit samples of this kind, whatever the clients
/// send. A plain value.
struct PcmFormat
{
    int sampleRate = 48000;  ///< Hz
    int channels = 1;
};

}  // namespace refhost
