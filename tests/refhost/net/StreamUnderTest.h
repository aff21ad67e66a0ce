#pragma once

#include <memory>
#include <string>

#include "refhost/net/ByteStream.h"

namespace refhost
{
namespace test
{

/// A stream with its other end.
class StreamUnderTest
{
public:
    virtual ~StreamUnderTest() = default;

    virtual void write(const std::string& bytes) = 0;
    /// Received bytes; waits, with a bound, for the first one.
    virtual std::string read() = 0;
    virtual void endWriting() = 0;
    /// True when the stream's side ended; bytes received before are dropped.
    virtual bool sawEnd() = 0;

    std::shared_ptr<ByteStream> stream;
};

}  // namespace test
}  // namespace refhost
