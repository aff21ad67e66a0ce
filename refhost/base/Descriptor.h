#pragma once

#include <unistd.h>

#include <utility>

namespace refhost
{

/// Owns a file descriptor and closes it when destroyed. Threads: one at a time.
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
        // Closes the old descriptor here rather than when `other` is destroyed.
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

    /// Passes ownership to the caller. \returns a negative number when there was none
    int release()
    {
        return std::exchange(number_, -1);
    }

    /// Closes the descriptor now.
    void reset()
    {
        *this = Descriptor();
    }

private:
    int number_;
};

}  // namespace refhost
