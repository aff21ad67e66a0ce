#pragma once
// Tested by tests/mediaurl/OrvaneMediaUrlLive_test.cpp, tests/mediaurl/OrvaneMediaUrlPlayback_test.cpp.

#include <cstddef>
#include <string>

#include "support/Export.h"

/// Scans the text of a media URL field by field; only requested fields are copied.
class OV_INTERNAL UrlScanner
{
public:
    /// \param url  must outlive this object
    explicit UrlScanner(const std::string& url)
        : begin_(url.data()), end_(url.data() + url.size()), next_(url.data())
    {
    }

    /// Advances past the first occurrence of `key`, a literal.
    /// \returns false when there is none, or nothing follows it; the position is unchanged then
    template <std::size_t Size>
    bool skipTo(const char (&key)[Size])
    {
        return skipTo(key, Size - 1);
    }

    /// Sets the field to the text up to the next `separator` and advances past the separator.
    /// \returns false when there is none, or the field would be empty; the position is unchanged then
    bool readField(char separator)
    {
        // A field has a few digits: a loop costs less than a call.
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

    /// The field of the last readField().
    std::string field() const
    {
        // Two characters, the common case, are copied without a call.
        const std::size_t length = static_cast<std::size_t>(next_ - begin_) - 1;
        return length == 2 ? std::string(begin_, 2) : std::string(begin_, length);
    }

    /// Whether no text is left.
    bool isAtEnd() const
    {
        return next_ == end_;
    }

    /// The remaining text.
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
