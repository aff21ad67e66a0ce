#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

/// Looks at objects as another program sees them that was built against the same headers: by place, not by
/// name.
class Layout
{
public:
    /// The T that lies `offset` bytes into an object.
    template <class T>
    static const T& at(const void* object, std::size_t offset)
    {
        const void* const member = static_cast<const unsigned char*>(object) + offset;
        return *static_cast<const T*>(member);
    }

    /// The T that lies in an object where `member` lies in the mirror structure M.
    template <class T, class M>
    static const T& at(const void* object, T M::*member)
    {
        alignas(M) static unsigned char place[sizeof(M)];
        const void* const start = place;
        const M* const mirror = static_cast<const M*>(start);
        return at<T>(object, static_cast<std::size_t>(
                                 reinterpret_cast<const unsigned char*>(&(mirror->*member)) - place));
    }

    /// Which entry of its class's table a virtual operation is called through; a destructor takes two.
    template <class Member>
    static std::size_t slotOf(Member member)
    {
        // A pointer to a virtual member holds its place in the table in bytes; on most machines plus 1.
        std::ptrdiff_t place = 0;
        static_assert(sizeof member >= sizeof place, "a pointer to member begins with the place");
        std::memcpy(&place, &member, sizeof place);
        return static_cast<std::size_t>(place & ~std::ptrdiff_t{1}) / sizeof(void*);
    }
};
