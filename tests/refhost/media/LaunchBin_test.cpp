#include "refhost/media/LaunchBin.h"

#include <gtest/gtest.h>

#include "refhost/media/GstHandles.h"

namespace refhost
{
namespace
{

class LaunchBinTest : public testing::Test
{
protected:
    LaunchBinTest()
    {
        gst_init(nullptr, nullptr);
    }

    static GstObjectPtr<GstElement> owned(GstElement* made)
    {
        return GstObjectPtr<GstElement>(made == nullptr ? nullptr : GST_ELEMENT(gst_object_ref_sink(made)));
    }

    std::string error_;
};

}  // namespace

TEST_F(LaunchBinTest, UnlinkedPadsAreGhostedOnRequest)
{
    const auto ghosted = owned(makeLaunchBin("identity ! identity", UnlinkedPads::ghosted, error_));
    ASSERT_TRUE(ghosted) << error_;
    EXPECT_EQ(2, ghosted->numpads);
    const auto left = owned(makeLaunchBin("identity ! identity", UnlinkedPads::left, error_));
    ASSERT_TRUE(left) << error_;
    EXPECT_EQ(0, left->numpads);
}

TEST_F(LaunchBinTest, LineOfOneElementMakesThatElement)
{
    const auto element = owned(makeLaunchElement("identity name=one", error_));
    ASSERT_TRUE(element) << error_;
    EXPECT_FALSE(GST_IS_BIN(element.get()));
    EXPECT_STREQ("one", GST_OBJECT_NAME(element.get()));
}

TEST_F(LaunchBinTest, MalformedLinesFailWithAnError)
{
    for (const char* const line :
         {"", "no-such-element", "identity ! no-such-element", "identity no-such=1", "identity !"})
    {
        error_.clear();
        EXPECT_EQ(nullptr, makeLaunchBin(line, UnlinkedPads::ghosted, error_)) << line;
        EXPECT_NE("", error_) << line;
        error_.clear();
        EXPECT_EQ(nullptr, makeLaunchElement(line, error_)) << line;
        EXPECT_NE("", error_) << line;
    }
}

}  // namespace refhost
