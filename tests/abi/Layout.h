#pragma once

#include <cstddef>

/// Looks at objects as another program sees them that was built against the same headers: by place, not by
/// name.
class Layout
{
public:
    /// The T at `offset` bytes into an object.
    template <class T>
    static const T& at(const void* object, std::size_t offset)
    {
        const void* const member = static_cast<const unsigned char*>(object) + offset;
        return *static_cast<const T*>(member);
    }

    /// The T at the offset that `member` has in the mirror structure M.
    template <class T, class M>
    static const T& at(const void* object, T M::*member)
    {
        alignas(M) static unsigned char place[sizeof(M)];
        const void* const start = place;
        const M* const mirror = static_cast<const M*>(start);
        return at<T>(object, static_cast<std::size_t>(
                                 reinterpret_cast<const unsigned char*>(&(mirror->*member)) - place));
    }
};
