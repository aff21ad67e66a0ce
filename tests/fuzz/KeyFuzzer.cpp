// What clients send to agree on SRTP keys: MIKEY messages, KeyMgmt headers and crypto attributes. The first byte
// chooses among them.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "refhost/rtp/srtp/CryptoAttribute.h"
#include "refhost/rtp/srtp/MikeyMessage.h"
#include "refhost/rtsp/message/KeyMgmtHeader.h"

namespace
{

using refhost::CryptoAttribute;
using refhost::KeyMgmtHeader;
using refhost::MikeyMessage;
using refhost::SrtpKey;

void require(bool condition, const char* what)
{
    if (!condition)
    {
        std::fprintf(stderr, "broken: %s\n", what);
        std::abort();
    }
}

/// A message that was taken says the same when it is written again.
void check(const std::optional<MikeyMessage>& message)
{
    if (!message)
    {
        return;
    }
    require(message->sessions.size() <= 255, "a message has too many crypto sessions");
    const std::vector<std::uint8_t> again =
        MikeyMessage::write(message->key, message->sessions, refhost::WallTime());
    const auto read = MikeyMessage::parse(again.data(), again.size());
    require(read && read->key == message->key, "a key changes when it is written again");
    require(read->sessions.size() == message->sessions.size(), "crypto sessions are lost");
}

void check(const std::optional<SrtpKey>& key)
{
    if (!key)
    {
        return;
    }
    std::string text;
    CryptoAttribute::append(text, *key);
    const auto read = CryptoAttribute::parse(text);
    require(read && *read == *key, "an attribute changes when it is written again");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
    {
        return 0;
    }
    const std::uint8_t* const rest = data + 1;
    const std::string_view text(reinterpret_cast<const char*>(rest), size - 1);
    switch (data[0] % 4)
    {
        case 0:
            check(MikeyMessage::parse(rest, size - 1));
            break;
        case 1:
            check(KeyMgmtHeader::parse(text));
            break;
        case 2:
            check(KeyMgmtHeader::parseAttribute(text));
            break;
        default:
            check(CryptoAttribute::parse(text));
            break;
    }
    return 0;
}
