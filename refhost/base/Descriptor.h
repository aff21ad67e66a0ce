#pragma once

#include <unistd.h>

#include <utility>

namespace refhost
{

/// Owns a descriptor of the system, a socket's or a file's, and closes it at its end.
class Descriptor
{
public:
    /// \param number  negative: none
    explicit Descriptor(int number = -1) : number_(number) {}

    ~Descriptor()
    {
        if (number_ >= 0)
        {
            ::close(number_);
        }
    }

    Descriptor(Descriptor&& other) noexcept : number_(other.release()) {}

    Descriptor& operator=(Descriptor&& other) noexcept
    {
        // What was owned before is closed here and not at the other's end.
        Descriptor old(std::exchange(number_, other.release()));
        return *this;
    }

    int get() const
    {
        return number_;
    }

    explicit operator bool() const
    {
        return number_ >= 0;
    }

    /// Gives the descriptor away. \returns a negative number when there was none
    int release()
    {
        return std::exchange(number_, -1);
    }

    /// Closes it now.
    void reset()
    {
        *this = Descriptor();
    }

private:
    int number_;
};

}  // namespace refhost
