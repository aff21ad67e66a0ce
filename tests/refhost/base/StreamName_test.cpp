#include "refhost/base/StreamName.h"

#include <gtest/gtest.h>

namespace refhost
{

TEST(StreamName, HasTheCamerasNameIfAny)
{
    EXPECT_EQ("camera 2/0 \"yard\"", StreamName::of(2, 0, "yard"));
    EXPECT_EQ("camera 2/1", StreamName::of(2, 1));
}

}  // namespace refhost
