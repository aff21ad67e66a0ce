#include "refhost/rtp/payload/JpegHeader.h"

#include <algorithm>
#include <array>

#include "refhost/rtp/payload/JpegTables.h"

namespace refhost
{
namespace
{

namespace marker
{
constexpr std::uint8_t startOfFrame = 0xc0;
constexpr std::uint8_t huffman = 0xc4;
constexpr std::uint8_t arithmetic = 0xcc;
constexpr std::uint8_t lastFrame = 0xcf;
constexpr std::uint8_t startOfFile = 0xd8;
constexpr std::uint8_t endOfFile = 0xd9;
constexpr std::uint8_t startOfScan = 0xda;
constexpr std::uint8_t quantizers = 0xdb;
constexpr std::uint8_t restartInterval = 0xdd;
constexpr std::uint8_t application = 0xe0;
constexpr std::uint8_t front = 0xff;
}  // namespace marker

constexpr std::size_t components = 3;
constexpr std::uint8_t halfBoth = 0x22;
constexpr std::uint8_t halfWidth = 0x21;
constexpr std::uint8_t whole = 0x11;

std::uint8_t high(int number)
{
    return static_cast<std::uint8_t>(number >> 8);
}

std::uint8_t low(int number)
{
    return static_cast<std::uint8_t>(number);
}

int big16(ByteSpan bytes, std::size_t at)
{
    return bytes[at] << 8 | bytes[at + 1];
}

/// Reads the segments in front of the scan.
class Reader
{
public:
    explicit Reader(JpegHeader& out) : out_(out) {}

    /// \param body  behind the segment's length
    const char* take(std::uint8_t type, ByteSpan body)
    {
        switch (type)
        {
            case marker::quantizers:
                return takeQuantizers(body);
            case marker::startOfFrame:
                return takeFrame(body);
            case marker::huffman:
                return takeHuffman(body);
            case marker::restartInterval:
                if (body.size != 2)
                {
                    return malformed;
                }
                out_.restartInterval = static_cast<std::uint16_t>(big16(body, 0));
                return nullptr;
            default:
                const bool otherFrame = type > marker::startOfFrame && type <= marker::lastFrame;
                return otherFrame || type == marker::arithmetic ? "not a baseline JPEG: RTP cannot carry it"
                                                                : nullptr;
        }
    }

    /// At the start of the scan. \param body  of its header
    const char* finish(ByteSpan body)
    {
        if (body.size != 1 + 2 * components + 3 || body[0] != components || out_.width == 0)
        {
            return "a JPEG without one scan of three components: RTP cannot carry it";
        }
        // Luma with the first pair of Huffman tables, chroma with the second.
        if (body[2] != 0x00 || body[4] != 0x11 || body[6] != 0x11)
        {
            return "a JPEG with unusual tables: RTP cannot carry it";
        }
        for (const unsigned table : {luma_, chroma_})
        {
            if (tables_.at(table).empty())
            {
                return malformed;
            }
            out_.quantizers.insert(out_.quantizers.end(), tables_.at(table).begin(), tables_.at(table).end());
        }
        return nullptr;
    }

    static constexpr const char* malformed = "a malformed JPEG";

private:
    const char* takeQuantizers(ByteSpan body)
    {
        constexpr std::size_t size = 1 + JpegTables::quantizerSize;
        for (; !body.empty(); body = body.from(size))
        {
            if (body[0] >> 4U != 0)
            {
                return "a JPEG with quantizers of 16 bits: RTP cannot carry it";
            }
            if (body.size < size || body[0] >= tables_.size())
            {
                return malformed;
            }
            tables_.at(body[0]).assign(body.begin() + 1, body.begin() + size);
        }
        return nullptr;
    }

    const char* takeFrame(ByteSpan body)
    {
        constexpr int maxSide = 2040;
        constexpr int step = 8;
        if (body.size != 6 + 3 * components || body[0] != 8 || body[5] != components)
        {
            return "a JPEG without three components of 8 bits: RTP cannot carry it";
        }
        const std::uint8_t sampling = body[7];
        if ((sampling != halfBoth && sampling != halfWidth) || body[10] != whole || body[13] != whole)
        {
            return "a JPEG that is neither 4:2:0 nor 4:2:2: RTP cannot carry it";
        }
        out_.halfHeight = sampling == halfBoth;
        out_.height = big16(body, 1);
        out_.width = big16(body, 3);
        luma_ = body[8];
        chroma_ = body[11];
        if (luma_ >= tables_.size() || chroma_ >= tables_.size() || body[14] != chroma_)
        {
            return "a JPEG with unusual tables: RTP cannot carry it";
        }
        const auto fits = [](int side) { return side > 0 && side <= maxSide && side % step == 0; };
        return fits(out_.width) && fits(out_.height)
                   ? nullptr
                   : "a JPEG whose sides are not multiples of 8 up to 2040: RTP cannot carry it";
    }

    /// Each table must be the usual one of its class and number.
    static const char* takeHuffman(ByteSpan body)
    {
        constexpr std::size_t countsAt = 1;
        constexpr std::size_t symbolsAt = 17;
        while (!body.empty())
        {
            if (body.size < symbolsAt)
            {
                return malformed;
            }
            std::size_t size = symbolsAt;
            for (std::size_t i = countsAt; i < symbolsAt; ++i)
            {
                size += body[i];
            }
            if (size > body.size)
            {
                return malformed;
            }
            if (!isUsual(body.first(size)))
            {
                return "a JPEG with Huffman tables of its own: RTP cannot carry it";
            }
            body = body.from(size);
        }
        return nullptr;
    }

    static bool isUsual(ByteSpan table)
    {
        constexpr std::size_t front = 4;
        ByteSpan usual = JpegTables::huffmanSegments();
        while (!usual.empty())
        {
            const auto size = static_cast<std::size_t>(big16(usual, 2)) + 2;
            const ByteSpan one = usual.first(size).from(front);
            if (std::equal(table.begin(), table.end(), one.begin(), one.end()))
            {
                return true;
            }
            usual = usual.from(size);
        }
        return false;
    }

    JpegHeader& out_;
    std::array<std::vector<std::uint8_t>, 4> tables_;
    unsigned luma_ = 0;
    unsigned chroma_ = 0;
};

}  // namespace

void JpegHeader::writeTo(std::vector<std::uint8_t>& out) const
{
    const auto add = [&out](std::initializer_list<std::uint8_t> bytes)
    { out.insert(out.end(), bytes.begin(), bytes.end()); };
    add({marker::front, marker::startOfFile});
    add({marker::front, marker::application, 0, 16, 'J', 'F', 'I', 'F', 0, 1, 1, 0, 0, 1, 0, 1, 0, 0});
    for (std::uint8_t table = 0; table < 2; ++table)
    {
        add({marker::front, marker::quantizers, 0, 3 + JpegTables::quantizerSize, table});
        const auto from = quantizers.begin() + static_cast<std::ptrdiff_t>(table * JpegTables::quantizerSize);
        out.insert(out.end(), from, from + JpegTables::quantizerSize);
    }
    if (restartInterval > 0)
    {
        add({marker::front, marker::restartInterval, 0, 4, high(restartInterval), low(restartInterval)});
    }
    add({marker::front, marker::startOfFrame, 0, 17, 8, high(height), low(height), high(width), low(width),
         components});
    add({1, halfHeight ? halfBoth : halfWidth, 0, 2, whole, 1, 3, whole, 1});
    const ByteSpan huffman = JpegTables::huffmanSegments();
    out.insert(out.end(), huffman.begin(), huffman.end());
    add({marker::front, marker::startOfScan, 0, 12, components, 1, 0x00, 2, 0x11, 3, 0x11, 0, 63, 0});
}

const char* JpegHeader::read(ByteSpan file, JpegHeader& out, ByteSpan& scan)
{
    if (file.size < 4 || file[0] != marker::front || file[1] != marker::startOfFile)
    {
        return "not a JPEG";
    }
    out = {};
    Reader reader(out);
    file = file.from(2);
    while (file.size >= 4 && file[0] == marker::front)
    {
        const std::uint8_t type = file[1];
        if (type == marker::front)  // bytes of filling
        {
            file = file.from(1);
            continue;
        }
        const auto size = static_cast<std::size_t>(big16(file, 2));
        if (size < 2 || size > file.size - 2)
        {
            return Reader::malformed;
        }
        const ByteSpan body = file.from(4).first(size - 2);
        file = file.from(2 + size);
        const char* const refused =
            type == marker::startOfScan ? reader.finish(body) : reader.take(type, body);
        if (refused != nullptr)
        {
            return refused;
        }
        if (type != marker::startOfScan)
        {
            continue;
        }
        const bool ends = file.size >= 2 && file[file.size - 2] == marker::front &&
                          file[file.size - 1] == marker::endOfFile;
        scan = file.first(file.size - (ends ? 2 : 0));
        return scan.empty() ? Reader::malformed : nullptr;
    }
    return Reader::malformed;
}

}  // namespace refhost
