#include "refhost/doctor/DoctorReport.h"

#include <gtest/gtest.h>

#include <sstream>

namespace refhost
{
namespace
{

std::vector<Finding> some()
{
    std::vector<Finding> all{Finding::good("fine"), Finding::warning("slow", "Mend it"),
                             Finding::failure("say \"no\"", "Say yes")};
    for (Finding& each : all)
    {
        each.subject = "thing";
    }
    return all;
}

TEST(DoctorReport, HasOneLineForEachFindingWithWhatToDo)
{
    std::ostringstream out;
    DoctorReport::writeText(some(), out);
    EXPECT_EQ(
        "ok       thing: fine.\n"
        "warning  thing: slow. Mend it.\n"
        "failure  thing: say \"no\". Say yes.\n"
        "1 failure, 1 warning\n",
        out.str());
}

TEST(DoctorReport, IsAnObjectAsJson)
{
    std::ostringstream out;
    DoctorReport::writeJson(some(), out);
    EXPECT_EQ(
        "{\"findings\":[\n"
        "{\"kind\":\"ok\",\"subject\":\"thing\",\"text\":\"fine\",\"mend\":\"\"},\n"
        "{\"kind\":\"warning\",\"subject\":\"thing\",\"text\":\"slow\",\"mend\":\"Mend it\"},\n"
        "{\"kind\":\"failure\",\"subject\":\"thing\",\"text\":\"say \\\"no\\\"\",\"mend\":\"Say yes\"}\n"
        "],\"failures\":1,\"warnings\":1}\n",
        out.str());
}

TEST(DoctorReport, ExitCodeIsTheNumberOfFailures)
{
    EXPECT_EQ(0, DoctorReport::exitCode({}));
    EXPECT_EQ(1, DoctorReport::exitCode(some()));
    EXPECT_EQ(100, DoctorReport::exitCode(std::vector<Finding>(300, Finding::failure("a", "b"))));
}

}  // namespace
}  // namespace refhost
