#pragma once
// Tested by tests/mediaurl/OrvaneMediaUrlLive_test.cpp, tests/mediaurl/OrvaneMediaUrlPlayback_test.cpp.

#include <cstddef>
#include <string>

#include "support/Export.h"

/// Goes through the text of a media URL field by field, without copying what nobody asks for.
class OV_INTERNAL UrlScanner
{
public:
    /// \param url  must outlive this object
    explicit UrlScanner(const std::string& url)
        : begin_(url.data()), end_(url.data() + url.size()), next_(url.data())
    {
    }

    /// Goes behind the first occurrence of `key`, a literal.
    /// \returns false when there is none, or nothing stands behind it; the place is unchanged then
    template <std::size_t Size>
    bool skipTo(const char (&key)[Size])
    {
        return skipTo(key, Size - 1);
    }

    /// Takes the text up to the next `separator` for the field, and goes behind the separator.
    /// \returns false when there is none, or no text stands before it; the place is unchanged then
    bool readField(char separator)
    {
        // A field is a few digits: looking at them costs less than a call.
        const char* at = next_;
        while (at != end_ && *at != separator)
        {
            ++at;
        }
        if (at == next_ || at == end_)
        {
            return false;
        }
        begin_ = next_;
        next_ = at + 1;
        return true;
    }

    /// What readField() took last.
    std::string field() const
    {
        // Two characters, the usual case, are copied without a call.
        const std::size_t length = static_cast<std::size_t>(next_ - begin_) - 1;
        return length == 2 ? std::string(begin_, 2) : std::string(begin_, length);
    }

    /// Whether no text is left.
    bool isAtEnd() const
    {
        return next_ == end_;
    }

    /// The text that is left.
    std::string rest() const
    {
        return std::string(next_, static_cast<std::size_t>(end_ - next_));
    }

private:
    bool skipTo(const char* key, std::size_t length);

    const char* begin_;
    const char* end_;
    const char* next_;
};
