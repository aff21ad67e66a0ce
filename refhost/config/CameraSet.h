#pragma once

#include <optional>
#include <string_view>
#include <utility>
#include <vector>

namespace refhost
{

/// A set of cameras, as the configuration writes it: "*" for all, "none", or numbers and ranges such as
/// "1, 3-5". A value type.
class CameraSet
{
public:
    /// Largest number of a camera.
    static constexpr int maxId = 999999;

    /// No camera.
    CameraSet() = default;

    static CameraSet all();
    /// \returns nothing for other texts, an empty one among them
    static std::optional<CameraSet> parse(std::string_view text);

    /// Whether `camera` is in the set; nothing means a camera that is not known, which only all() has.
    bool contains(std::optional<int> camera) const;
    bool empty() const;

    /// Adds the cameras of `other`.
    void add(const CameraSet& other);

private:
    bool all_ = false;
    std::vector<std::pair<int, int>> ranges_;  // first and last
};

}  // namespace refhost
