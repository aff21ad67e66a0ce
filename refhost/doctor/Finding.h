#pragma once
// Tested by tests/refhost/doctor/CheckRunner_test.cpp.

#include <string>
#include <utility>

namespace refhost
{

/// What a check found. A plain value.
struct Finding
{
    enum class Kind
    {
        good,
        warning,  ///< the server runs, but not at its best
        failure
    };

    Kind kind = Kind::good;
    std::string text;       ///< one sentence without its full stop; without credentials
    std::string mend{};     ///< what to do, as one sentence; empty where nothing has to be done
    std::string subject{};  ///< what was checked; set by CheckRunner

    static Finding good(std::string text)
    {
        return {Kind::good, std::move(text)};
    }
    static Finding warning(std::string text, std::string mend)
    {
        return {Kind::warning, std::move(text), std::move(mend)};
    }
    static Finding failure(std::string text, std::string mend)
    {
        return {Kind::failure, std::move(text), std::move(mend)};
    }
};

}  // namespace refhost
