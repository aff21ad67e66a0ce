#include "refhost/rtsp/message/KeyMgmtHeader.h"

#include <gst/sdp/sdp.h>
#include <gtest/gtest.h>

#include <string>

#include "refhost/base/Base64.h"

namespace refhost
{
namespace
{

const SrtpKey key = SrtpKey::random(SrtpSuite::aesCm128HmacSha1Tag80);

std::vector<std::uint8_t> message()
{
    return MikeyMessage::write(key, {}, WallTime());
}

std::string text()
{
    const auto bytes = message();
    return base64Of(bytes.data(), bytes.size());
}

void expectKey(const std::string& value)
{
    const auto read = KeyMgmtHeader::parse(value);
    ASSERT_TRUE(read) << value;
    EXPECT_TRUE(read->key == key);
}

TEST(KeyMgmtHeader, IsReadAsGStreamerWritesIt)
{
    char* const written = gst_sdp_make_keymgmt("rtsp://127.0.0.1/orv/live/1/0/trackID=0", text().c_str());
    expectKey(written);
    g_free(written);
}

TEST(KeyMgmtHeader, IsReadInOtherSpellings)
{
    expectKey("prot=MIKEY; data=\"" + text() + "\"");
    expectKey("data=\"" + text() + "\" ; uri=\"\" ; prot=\"mikey\"");
    expectKey("prot=other;data=\"AAAA\", prot=mikey;data=\"" + text() + "\"");
    expectKey("prot=mikey;x;data=" + text());
}

TEST(KeyMgmtHeader, IsRefusedWithoutAMessage)
{
    for (const std::string& value :
         {std::string(), std::string("prot=mikey"), "data=\"" + text() + "\"",
          "prot=other;data=\"" + text() + "\"", std::string("prot=mikey;data=\"\""),
          std::string("prot=mikey;data=\"****\""), "prot=mikey;data=\"" + std::string(20000, 'A') + "\""})
    {
        EXPECT_FALSE(KeyMgmtHeader::parse(value)) << value.substr(0, 60);
    }
}

TEST(KeyMgmtHeader, EveryPrefixIsTakenOrRefused)
{
    const std::string value = "prot=mikey;uri=\"rtsp://h/p\";data=\"" + text() + "\"";
    for (std::size_t size = 0; size + 2 < value.size(); ++size)
    {
        EXPECT_FALSE(KeyMgmtHeader::parse(value.substr(0, size))) << size;
    }
}

TEST(KeyMgmtHeader, WhatIsWrittenIsReadBack)
{
    std::string header;
    KeyMgmtHeader::append(header, "rtsp://h/p", message());
    expectKey(header);
    std::string attribute;
    KeyMgmtHeader::appendAttribute(attribute, message());
    const auto read = KeyMgmtHeader::parseAttribute(attribute);
    ASSERT_TRUE(read);
    EXPECT_TRUE(read->key == key);
    EXPECT_FALSE(KeyMgmtHeader::parseAttribute("other" + attribute));
}

}  // namespace
}  // namespace refhost
