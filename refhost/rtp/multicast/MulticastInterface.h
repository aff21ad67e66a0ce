#pragma once
// Tested by tests/refhost/rtp/multicast/MulticastServer_test.cpp.

#include <netinet/in.h>

#include <optional>
#include <string>

namespace refhost
{

/// The network interface that multicast is sent through. A plain value.
class MulticastInterface
{
public:
    /// Chosen by the system's routes for each group.
    MulticastInterface() = default;

    /// \param text  name or address of an interface
    /// \returns nothing when there is no such interface
    static std::optional<MulticastInterface> find(const std::string& text);

    /// Its index; 0 when the routes choose.
    int index() const
    {
        return index_;
    }

private:
    int index_ = 0;
};

}  // namespace refhost
