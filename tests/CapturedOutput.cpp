#include "tests/CapturedOutput.h"

#include <gtest/gtest.h>

CapturedOutput::CapturedOutput()
{
    testing::internal::CaptureStdout();
}

CapturedOutput::~CapturedOutput()
{
    text();
}

std::string CapturedOutput::text()
{
    if (!active_)
    {
        return std::string();
    }
    active_ = false;
    return testing::internal::GetCapturedStdout();
}
