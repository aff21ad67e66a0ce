#pragma once

#include <string>

/// What the device's URL syntax says of a text, computed independently of the codec: the judge of the fuzz
/// target.
class UrlOracle
{
public:
    /// What a parse must return and leave behind.
    struct Verdict
    {
        int result;
        int camera;
        int stream;
        double begin;
        double end;
    };

    /// \param before  the codec's values before the parse; what the parse does not write stays
    static Verdict live(const std::string& url, Verdict before);
    static Verdict playback(const std::string& url, Verdict before);

    /// The whole seconds of a time in a URL.
    static double rendered(double time);
};
