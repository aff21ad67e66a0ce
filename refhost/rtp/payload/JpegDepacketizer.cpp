#include "refhost/rtp/payload/JpegDepacketizer.h"

#include <algorithm>
#include <utility>

#include "refhost/base/ByteOrder.h"
#include "refhost/rtp/payload/JpegTables.h"

namespace refhost
{
namespace
{

constexpr std::size_t mainHeaderSize = 8;
constexpr std::size_t shortHeaderSize = 4;  // of restart markers, and of quantizers
constexpr std::size_t quantizersSize = 2 * JpegTables::quantizerSize;
constexpr unsigned firstInBand = 128;
constexpr unsigned eachFrame = 255;  // the quality whose quantizers change

}  // namespace

std::unique_ptr<Depacketizer> JpegDepacketizer::make(const PayloadDescription& track, Deliver deliver,
                                                     std::string& error)
{
    if (track.clockRate != infoOf(Codec::mjpeg).clockRate)
    {
        error = "video has a clock rate of 90000 Hz, not " + std::to_string(track.clockRate);
        return nullptr;
    }
    return std::unique_ptr<Depacketizer>(new JpegDepacketizer(std::move(deliver)));
}

JpegDepacketizer::JpegDepacketizer(Deliver deliver) : Depacketizer(std::move(deliver)) {}

/// Section 3.1.
const char* JpegDepacketizer::read(ByteSpan payload, Fields& out)
{
    constexpr unsigned restarts = 64;
    constexpr int block = 8;
    if (payload.size <= mainHeaderSize)
    {
        return "cut short";
    }
    out.offset = readBig32(payload.data) & 0xffffffU;
    const unsigned type = payload[4];
    out.quality = payload[5];
    out.header.width = payload[6] * block;
    out.header.height = payload[7] * block;
    if ((type & ~restarts) > 1)
    {
        return "a type of JPEG other than 4:2:0 and 4:2:2";
    }
    if (out.quality == 0 || (out.quality >= 100 && out.quality < firstInBand))
    {
        return "a reserved quality";
    }
    if (out.header.width == 0 || out.header.height == 0)
    {
        return "a frame without size, or of more than 2040 pixels";
    }
    out.header.halfHeight = (type & 1U) != 0;
    payload = payload.from(mainHeaderSize);
    if ((type & restarts) != 0)
    {
        if (payload.size <= shortHeaderSize)
        {
            return "cut short";
        }
        out.header.restartInterval = readBig16(payload.data);
        payload = payload.from(shortHeaderSize);
    }
    if (out.offset == 0 && out.quality >= firstInBand)
    {
        const char* const refused = readQuantizers(payload, out);
        if (refused != nullptr)
        {
            return refused;
        }
    }
    out.fragment = payload;
    return payload.empty() ? "cut short" : nullptr;
}

/// Section 3.1.8.
const char* JpegDepacketizer::readQuantizers(ByteSpan& payload, Fields& out)
{
    if (payload.size < shortHeaderSize)
    {
        return "cut short";
    }
    const unsigned precision = payload[1];
    const std::size_t length = readBig16(payload.data + 2);
    payload = payload.from(shortHeaderSize);
    if (length > payload.size)
    {
        return "cut short";
    }
    const ByteSpan tables = payload.first(length);
    payload = payload.from(length);
    if (length == 0)
    {
        return nullptr;
    }
    if ((precision & 3U) != 0)
    {
        return "quantizers of 16 bits are not read";
    }
    // Some senders have one table for both.
    if (length != quantizersSize && length != JpegTables::quantizerSize)
    {
        return "an odd number of quantizers";
    }
    out.header.quantizers.assign(tables.begin(), tables.end());
    if (length != quantizersSize)
    {
        out.header.quantizers.insert(out.header.quantizers.end(), tables.begin(), tables.end());
    }
    return nullptr;
}

const char* JpegDepacketizer::take(const RtpPacketView& packet, std::uint32_t lost)
{
    const ByteSpan payload(packet.payload, packet.payloadSize);
    lossPending_ = lossPending_ || lost > 0;
    Fields fields;
    const char* refused = read(payload, fields);
    const bool another = packet.timestamp != timestamp_ || (refused == nullptr && fields.offset == 0);
    if (gathering_ && another)
    {
        damaged_ = damaged_ || (lossPending_ && !ends_.mayBeWhole());
        finish();
    }
    if (refused == nullptr && !gathering_)
    {
        refused = start(fields, packet.timestamp);
    }
    if (refused != nullptr)
    {
        lossPending_ = true;
        return refused;
    }
    if (ends_.mayBeWhole() && !lossPending_)
    {
        ends_.onMoreOfFrame();
    }
    lossPending_ = false;
    damaged_ = damaged_ || fields.offset != scanSize_;
    constexpr std::size_t front = AccessUnit::framingSize + AccessUnit::rtpHeaderSize;
    tooLarge_ = tooLarge_ || packets_.packets() >= maxUnitPackets ||
                std::max(packets_.bytes() + front, media_.size()) + payload.size > maxUnitBytes;
    if (tooLarge_)
    {
        packets_.clear();
        media_.clear();
    }
    if (!damaged_)
    {
        if (making_.packets && !tooLarge_)
        {
            packets_.add(payload, {});
        }
        scanSize_ += fields.fragment.size;
        if (making_.media && !tooLarge_)
        {
            media_.insert(media_.end(), fields.fragment.begin(), fields.fragment.end());
        }
    }
    const bool tooLarge = tooLarge_;
    if (packet.marker && ends_.onMarker())
    {
        finish();
    }
    return tooLarge ? "part of a frame that is too large" : nullptr;
}

const char* JpegDepacketizer::start(Fields& fields, std::uint32_t timestamp)
{
    if (fields.offset == 0 && !findQuantizers(fields))
    {
        return "quantizers that were not sent yet";
    }
    ends_.onNextFrame();
    if (fields.offset != 0 && timestamp == timestamp_ && !lossPending_)
    {
        ends_.onMoreOfFrame();
    }
    gathering_ = true;
    timestamp_ = timestamp;
    making_ = outputs();
    header_ = std::move(fields.header);
    packets_.expect(expectedBytes_, expectedBytes_ / 1024 + 1);
    if (making_.media && fields.offset == 0)
    {
        media_.reserve(expectedBytes_);
        header_.writeTo(media_);
    }
    lossPending_ = false;
    return nullptr;
}

bool JpegDepacketizer::findQuantizers(Fields& fields)
{
    std::vector<std::uint8_t>& quantizers = fields.header.quantizers;
    if (fields.quality < firstInBand)
    {
        quantizers = JpegTables::quantizers(fields.quality);
        return true;
    }
    if (!quantizers.empty())
    {
        if (fields.quality != eachFrame)
        {
            quantizers_[fields.quality] = quantizers;
        }
        return true;
    }
    const auto known = quantizers_.find(fields.quality);
    if (known == quantizers_.end())
    {
        return false;
    }
    quantizers = known->second;
    return true;
}

void JpegDepacketizer::finish()
{
    constexpr std::uint8_t front = 0xff;
    constexpr std::uint8_t endOfFile = 0xd9;
    if (tooLarge_)
    {
        lossPending_ = true;
        return forget();
    }
    DepacketizedUnit unit;
    unit.timestamp = timestamp_;
    unit.keyFrame = true;
    unit.damaged = damaged_;
    expectedBytes_ = std::max(media_.size(), packets_.bytes()) * 9 / 8;
    if (scanSize_ > 0)
    {
        MediaFormat format;
        format.codec = Codec::mjpeg;
        format.width = header_.width;
        format.height = header_.height;
        setFormat(std::move(format));
        const std::size_t size = media_.size();
        const bool ends = size >= 2 && media_[size - 2] == front && media_[size - 1] == endOfFile;
        if (making_.media && !ends)
        {
            media_.insert(media_.end(), {front, endOfFile});
        }
        unit.bytes = std::exchange(media_, {});
    }
    if (making_.packets)
    {
        unit.maxPayload = packets_.maxPayload();
        unit.packets = packets_.finish(timestamp_, true);
        if (unit.packets)
        {
            unit.packets->keyFrame = true;
        }
    }
    deliver(std::move(unit));
    forget();
}

void JpegDepacketizer::forget()
{
    media_.clear();
    packets_.clear();
    scanSize_ = 0;
    gathering_ = false;
    damaged_ = false;
    tooLarge_ = false;
}

void JpegDepacketizer::flush()
{
    if (gathering_)
    {
        damaged_ = damaged_ || (lossPending_ && !ends_.mayBeWhole());
        finish();
    }
}

void JpegDepacketizer::reset()
{
    forget();
    ends_.reset();
    lossPending_ = false;
}

}  // namespace refhost
