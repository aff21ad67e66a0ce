#include "refhost/doctor/CheckRunner.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <stdexcept>

#include "refhost/doctor/DoctorReport.h"

namespace refhost
{
namespace
{

using std::chrono::milliseconds;
using Checks = std::vector<std::shared_ptr<HealthCheck>>;

/// Runs a function.
class Scripted : public HealthCheck
{
public:
    Scripted(std::string subject, std::function<std::vector<Finding>()> run)
        : subject_(std::move(subject)), run_(std::move(run))
    {
    }

    std::string subject() const override
    {
        return subject_;
    }
    std::vector<Finding> run() override
    {
        return run_();
    }

private:
    const std::string subject_;
    const std::function<std::vector<Finding>()> run_;
};

TEST(CheckRunner, FindingsComeInTheOrderOfTheChecks)
{
    Checks checks;
    for (int i = 0; i < 50; ++i)
    {
        checks.push_back(std::make_shared<Scripted>(
            std::to_string(i),
            [] {
                return std::vector<Finding>{Finding::good("a"), Finding::good("b")};
            }));
    }
    const auto found = CheckRunner::run(checks, milliseconds(20000));
    ASSERT_EQ(100u, found.size());
    for (int i = 0; i < 100; ++i)
    {
        EXPECT_EQ(std::to_string(i / 2), found[i].subject);
    }
    EXPECT_EQ(0, CheckRunner::abandoned());
}

TEST(CheckRunner, CheckThatHangsIsAFailureAndHoldsUpNoOther)
{
    std::promise<void> end;
    const std::shared_future<void> ended = end.get_future().share();
    const Checks checks{
        std::make_shared<Scripted>("stuck",
                                   [ended]
                                   {
                                       ended.wait();
                                       return std::vector<Finding>();
                                   }),
        std::make_shared<Scripted>("quick", [] { return std::vector<Finding>{Finding::good("done")}; })};
    const auto found = CheckRunner::run(checks, milliseconds(100));
    end.set_value();
    ASSERT_EQ(2u, found.size());
    EXPECT_EQ("stuck", found[0].subject);
    EXPECT_EQ(Finding::Kind::failure, found[0].kind);
    EXPECT_EQ("it did not end within 0.1 s", found[0].text);
    EXPECT_FALSE(found[0].mend.empty());
    EXPECT_EQ("done", found[1].text);
    EXPECT_EQ(1, CheckRunner::abandoned());
}

TEST(CheckRunner, CheckThatThrowsIsAFailure)
{
    const Checks checks{std::make_shared<Scripted>(
        "broken", []() -> std::vector<Finding> { throw std::runtime_error("no\nmore"); })};
    const auto found = CheckRunner::run(checks, milliseconds(20000));
    ASSERT_EQ(1u, found.size());
    EXPECT_EQ(Finding::Kind::failure, found[0].kind);
    EXPECT_EQ("no\\x0amore", found[0].text);
}

}  // namespace
}  // namespace refhost
