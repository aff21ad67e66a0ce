#pragma once

#include <iosfwd>
#include <vector>

#include "refhost/doctor/Finding.h"

namespace refhost
{

/// Writes findings. Threads: any; no state.
class DoctorReport
{
public:
    /// Max exit code; more failures count as so many.
    static constexpr int maxCode = 100;

    /// One line each: "failure  ports: … Mend: …", and a last one with the counts.
    static void writeText(const std::vector<Finding>& findings, std::ostream& out);
    /// An object with "findings" (kind, subject, text, mend), "failures" and "warnings".
    static void writeJson(const std::vector<Finding>& findings, std::ostream& out);

    /// The number of failures, at most maxCode.
    static int exitCode(const std::vector<Finding>& findings);
};

}  // namespace refhost
