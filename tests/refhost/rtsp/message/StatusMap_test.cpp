#include "refhost/rtsp/message/StatusMap.h"

#include <gtest/gtest.h>

#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <utility>

#include "refhost/base/HostStatus.h"
#include "support/StatusCode.h"

namespace refhost
{
namespace
{

using Step = StatusMap::Step;

TEST(StatusMap, SuccessIs200AtEveryStep)
{
    for (const Step step : {Step::create, Step::setup, Step::control})
    {
        EXPECT_EQ(StatusMap::ofCode(step, statusSuccess), rtspOk);
    }
}

TEST(StatusMap, TheSameCodeMeansWhatItsStepMakesOfIt)
{
    EXPECT_EQ(StatusMap::ofCode(Step::create, statusRefused), rtspInternalError);
    EXPECT_EQ(StatusMap::ofCode(Step::setup, statusRefused), rtspUnsupportedTransport);
    EXPECT_EQ(StatusMap::ofCode(Step::create, statusNotFound), rtspNotFound);
    EXPECT_EQ(StatusMap::ofCode(Step::setup, statusNotFound), rtspNotFound);
    EXPECT_EQ(StatusMap::ofCode(Step::create, hostStreamUnknown), rtspNotFound);
    EXPECT_EQ(StatusMap::ofCode(Step::create, hostStreamNotReady), rtspServiceUnavailable);
    EXPECT_EQ(StatusMap::ofCode(Step::create, hostStreamFailed), rtspServiceUnavailable);
    EXPECT_EQ(StatusMap::ofCode(Step::setup, hostTrackUnknown), rtspNotFound);
    EXPECT_EQ(StatusMap::ofCode(Step::control, hostTrackUnknown), rtspInvalidState);
    EXPECT_EQ(StatusMap::ofCode(Step::create, hostRecordingUnknown), rtspNotFound);
    EXPECT_EQ(StatusMap::ofCode(Step::control, hostRangeInvalid), rtspInvalidRange);
}

TEST(StatusMap, EveryCodeThatARequestCanProvokeHasAMeaning)
{
    for (const int code : {static_cast<int>(statusNoPlayer), static_cast<int>(statusRefused),
                           static_cast<int>(statusNotFound), static_cast<int>(statusPlayerUnusable),
                           static_cast<int>(statusThreadFailed), static_cast<int>(hostStreamUnknown),
                           static_cast<int>(hostStreamNotReady), static_cast<int>(hostStreamFailed),
                           static_cast<int>(hostTrackUnknown), static_cast<int>(hostConnectionUnusable),
                           static_cast<int>(hostTalkBackUnavailable), static_cast<int>(hostRecordingUnknown),
                           static_cast<int>(hostRecordingsIncomplete), static_cast<int>(hostRangeInvalid),
                           static_cast<int>(hostTalkBackBusy), static_cast<int>(hostTalkSenderLeft)})
    {
        EXPECT_NE(StatusMap::ofCode(Step::setup, code), rtspInternalError) << code;
        EXPECT_NE(StatusMap::ofCode(Step::control, code), rtspInternalError) << code;
    }
}

TEST(StatusMap, UnknownCodesAre500)
{
    EXPECT_EQ(StatusMap::ofCode(Step::create, -9999), rtspInternalError);
    EXPECT_EQ(StatusMap::ofCode(Step::control, 1), rtspInternalError);
}

TEST(StatusMap, NoRowIsThereTwice)
{
    std::set<std::pair<int, int>> seen;
    for (std::size_t i = 0; i < StatusMap::rowCount; ++i)
    {
        const StatusMap::Row& row = StatusMap::rows()[i];
        EXPECT_TRUE(seen.emplace(row.code, static_cast<int>(row.step)).second) << row.code;
    }
}

TEST(StatusMap, EveryStatusHasAReason)
{
    for (std::size_t i = 0; i < StatusMap::rowCount; ++i)
    {
        EXPECT_NE(StatusMap::reason(StatusMap::rows()[i].status), "Unknown");
    }
    EXPECT_EQ(StatusMap::reason(299), "Unknown");
}

std::string nameOf(Step step)
{
    return step == Step::create ? "create" : step == Step::setup ? "setup" : "control";
}

TEST(StatusMap, IsTheTableThatTheDocumentationShows)
{
    std::ifstream file(OV_SOURCE_DIR "/docs/status-codes.md");
    std::ostringstream text;
    text << file.rdbuf();
    for (std::size_t i = 0; i < StatusMap::rowCount; ++i)
    {
        const StatusMap::Row& row = StatusMap::rows()[i];
        std::ostringstream line;
        line << "| " << row.code << " | " << nameOf(row.step) << " | " << row.status << " "
             << StatusMap::reason(row.status) << " |";
        EXPECT_NE(text.str().find(line.str()), std::string::npos) << "not in status-codes.md: " << line.str();
    }
}

}  // namespace
}  // namespace refhost
