#include "refhost/rtsp/StatusMap.h"

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
    EXPECT_EQ(StatusMap::ofCode(Step::control, hostTrackUnknown), rtspInvalidState);
    EXPECT_EQ(StatusMap::ofCode(Step::create, hostRecordingUnknown), rtspNotFound);
    EXPECT_EQ(StatusMap::ofCode(Step::control, hostRangeInvalid), rtspInvalidRange);
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
