#include "refhost/doctor/DoctorReport.h"

#include <fmt/format.h>

#include <algorithm>
#include <ostream>
#include <string>

#include "refhost/base/JsonText.h"

namespace refhost
{
namespace
{

std::size_t countOf(const std::vector<Finding>& findings, Finding::Kind kind)
{
    return static_cast<std::size_t>(std::count_if(findings.begin(), findings.end(),
                                                  [kind](const Finding& each) { return each.kind == kind; }));
}

const char* nameOf(Finding::Kind kind)
{
    switch (kind)
    {
        case Finding::Kind::warning:
            return "warning";
        case Finding::Kind::failure:
            return "failure";
        case Finding::Kind::good:
            break;
    }
    return "ok";
}

std::string counted(std::size_t count, const char* what)
{
    return fmt::format("{} {}{}", count, what, count == 1 ? "" : "s");
}

void appendMember(std::string& out, const char* name, const std::string& value)
{
    JsonText::append(out, name);
    out += ':';
    JsonText::append(out, value);
}

}  // namespace

void DoctorReport::writeText(const std::vector<Finding>& findings, std::ostream& out)
{
    for (const Finding& each : findings)
    {
        out << fmt::format("{:<8} {}: {}.{}{}{}\n", nameOf(each.kind), each.subject, each.text,
                           each.mend.empty() ? "" : " ", each.mend, each.mend.empty() ? "" : ".");
    }
    out << fmt::format("{}, {}\n", counted(countOf(findings, Finding::Kind::failure), "failure"),
                       counted(countOf(findings, Finding::Kind::warning), "warning"));
}

void DoctorReport::writeJson(const std::vector<Finding>& findings, std::ostream& out)
{
    std::string text = "{\"findings\":[";
    const char* separator = "\n";
    for (const Finding& each : findings)
    {
        text += separator;
        separator = ",\n";
        text += '{';
        appendMember(text, "kind", nameOf(each.kind));
        text += ',';
        appendMember(text, "subject", each.subject);
        text += ',';
        appendMember(text, "text", each.text);
        text += ',';
        appendMember(text, "mend", each.mend);
        text += '}';
    }
    out << text
        << fmt::format("\n],\"failures\":{},\"warnings\":{}}}\n", countOf(findings, Finding::Kind::failure),
                       countOf(findings, Finding::Kind::warning));
}

int DoctorReport::exitCode(const std::vector<Finding>& findings)
{
    return static_cast<int>(
        std::min(countOf(findings, Finding::Kind::failure), static_cast<std::size_t>(maxCode)));
}

}  // namespace refhost
