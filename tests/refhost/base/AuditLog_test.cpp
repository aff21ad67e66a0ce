#include "refhost/base/AuditLog.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "refhost/base/Log.h"
#include "refhost/base/ServerEvents.h"
#include "tests/CapturedErrors.h"

namespace refhost
{
namespace
{

SocketAddress address(const std::string& text)
{
    return *SocketAddress::parse(text, 1234);
}

/// The line's part from "audit: " on.
std::string auditOf(const std::vector<std::string>& lines)
{
    return lines.size() == 1 ? lines[0].substr(lines[0].find("audit: "))
                             : std::to_string(lines.size()) + " lines";
}

TEST(AuditLog, EveryEventHasItsFieldsInAFixedOrder)
{
    struct Case
    {
        void (*write)();
        std::string line;
    };
    const std::vector<Case> cases{
        {[] { AuditLog::connectionRefused(address("192.0.2.1"), "connections"); },
         "audit: connection-refused address=192.0.2.1 limit=connections"},
        {[] { AuditLog::authenticationFailed(address("2001:db8::1"), "admin", "password", "rtsp://h/a"); },
         R"(audit: authentication-failed address=2001:db8::1 user="admin" reason=password url="rtsp://h/a")"},
        {[] {
             AuditLog::authenticationRefused(address("192.0.2.1"), "", std::chrono::seconds(9), "rtsp://h/a");
         },
         R"(audit: authentication-refused address=192.0.2.1 user="" seconds=9 url="rtsp://h/a")"},
        {[] { AuditLog::rightRefused(address("192.0.2.1"), "eve", "talk", "rtsp://h/a"); },
         R"(audit: right-refused address=192.0.2.1 user="eve" right=talk url="rtsp://h/a")"},
        {[] {
             AuditLog::sessionStarted({address("192.0.2.1").key(), "eve", "rtsp://h/a", "tcp"});
         },
         R"(audit: session-started address=192.0.2.1 user="eve" url="rtsp://h/a" transport=tcp)"},
        {[]
         {
             AuditLog::sessionEnded({address("2001:db8::1").key(), "", "rtsp://h/a", "udp"},
                                    std::chrono::milliseconds(1500), {1000, 7});
         },
         R"(audit: session-ended address=2001:db8::1 user="" url="rtsp://h/a" transport=udp milliseconds=1500 )"
         "bytes=1000 lost=7"},
        {[] { AuditLog::talkBackTaken(address("192.0.2.1").key(), "eve", "rtsp://h/a"); },
         R"(audit: talk-back-taken address=192.0.2.1 user="eve" url="rtsp://h/a")"},
        {[] { AuditLog::configurationChanged("certificate"); },
         "audit: configuration-changed what=certificate"},
    };
    for (const Case& c : cases)
    {
        CapturedErrors errors;
        c.write();
        EXPECT_EQ(auditOf(errors.linesWith("")), c.line);
    }
}

TEST(AuditLog, WhatAClientSendsForgesNeitherAFieldNorALine)
{
    CapturedErrors errors;
    AuditLog::authenticationFailed(address("192.0.2.2"),
                                   "x\" reason=user\r\naudit: authentication-failed address=9.9.9.9",
                                   "password", "rtsp://h/\" bytes=1\naudit: x");
    const std::string line = auditOf(errors.linesWith(""));
    EXPECT_EQ(
        line,
        "audit: authentication-failed address=192.0.2.2 "
        "user=\"x\\x22 reason=user\\x0d\\x0aaudit: authentication-failed address=9.9.9.9\" reason=password "
        "url=\"rtsp://h/\\x22 bytes=1\\x5cx0aaudit: x\"");
}

TEST(AuditLog, UrlsShowNoCredentials)
{
    CapturedErrors errors;
    AuditLog::rightRefused(address("192.0.2.3"), "u", "live", "rtsp://u:p@ss:w?rd@host/a");
    EXPECT_NE(auditOf(errors.linesWith("")).find("url=\"rtsp://***@host/a\""), std::string::npos);
}

TEST(AuditLog, SessionsAndTalkBackArePublishedWhateverTheLogAdmits)
{
    constexpr std::size_t times = 2 * AuditLog::burst + 50;
    const auto key = address("192.0.2.6").key();
    const auto events = ServerEvents::instance().subscribe(1000, nullptr);
    CapturedErrors errors;
    for (std::size_t i = 0; i < times; ++i)
    {
        AuditLog::sessionStarted({key, "eve", "rtsp://u:p@h/a", "tcp"});
    }
    Log::setLevel(Log::Level::error);
    AuditLog::talkBackTaken(key, "eve", "rtsp://h/a");
    AuditLog::talkBackEnded(key, "eve", "rtsp://h/a");
    AuditLog::sessionEnded({key, "eve", "rtsp://h/a", "tcp"}, std::chrono::milliseconds(1500), {1000, 7});
    Log::setLevel(Log::Level::info);
    EXPECT_LT(errors.linesWith("audit: session-started").size(), times);
    const auto published = events->take().events;
    AuditLog::reportSuppressed();
    ASSERT_EQ(published.size(), times + 3);
    EXPECT_EQ(std::get<std::string>(*published[0]->find("url")), "rtsp://***@h/a");
    EXPECT_EQ(published[times]->name, "talk-back-taken");
    EXPECT_EQ(published[times + 1]->name, "talk-back-ended");
    EXPECT_EQ(std::get<std::int64_t>(*published[times + 2]->find("lost")), 7);
}

TEST(AuditLog, AFloodIsCounted)
{
    CapturedErrors errors;
    AuditLog::reportSuppressed();
    for (unsigned i = 0; i < AuditLog::burst + 500; ++i)
    {
        AuditLog::authenticationFailed(address("192.0.2.4"), "u", "password", "rtsp://h/a");
    }
    AuditLog::authenticationFailed(address("192.0.2.5"), "u", "password", "rtsp://h/a");
    AuditLog::reportSuppressed();
    AuditLog::reportSuppressed();
    const auto failed = errors.linesWith("audit: authentication-failed").size();
    EXPECT_GE(failed, AuditLog::burst + 1);
    EXPECT_LE(failed, AuditLog::burst + 30) << "a line comes back in each second";
    const auto counts = errors.linesWith("audit: suppressed");
    ASSERT_EQ(counts.size(), 1u);
    EXPECT_NE(
        counts[0].find("of=authentication-failed lines=" + std::to_string(AuditLog::burst + 501 - failed)),
        std::string::npos)
        << counts[0];
    EXPECT_EQ(errors.linesWith("192.0.2.5").size(), 1u) << "others keep their lines";
}

}  // namespace
}  // namespace refhost
