#pragma once
// Tested by tests/refhost/rtp/multicast/MulticastServer_test.cpp.

#include <netinet/in.h>

#include <optional>
#include <string>

namespace refhost
{

/// Which network interface multicast leaves through. A plain value.
class MulticastInterface
{
public:
    /// The one that the system's routes choose for each group.
    MulticastInterface() = default;

    /// \param text  name or address of an interface
    /// \returns nothing when there is none such
    static std::optional<MulticastInterface> find(const std::string& text);

    /// For the system's calls; 0 when the routes choose.
    int index() const
    {
        return index_;
    }

private:
    int index_ = 0;
};

}  // namespace refhost
