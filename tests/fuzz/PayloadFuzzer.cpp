// Any RTP payloads into the depacketizers, any media and any description into depacketizers and packetizers.
//
// The first byte chooses the payload format, the second what else is done: 1: the first record is what is
// described (config, parameter sets), 2: no media, 4: no packets, 8: what comes out is packed again, 16: the
// records are units for the packetizer. Then come records: a byte of marks (1: marker, 2: packets were lost,
// 4: another timestamp, 8: a flush, 16: a reset), two bytes with the size, and as many bytes.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "refhost/base/Base64.h"
#include "refhost/base/ByteOrder.h"
#include "refhost/base/Hex.h"
#include "refhost/media/NalSyntax.h"
#include "refhost/rtp/payload/Depacketizer.h"
#include "refhost/rtp/payload/Packetizer.h"

namespace
{

using Bytes = std::vector<std::uint8_t>;

constexpr unsigned described = 1;
constexpr unsigned noMedia = 2;
constexpr unsigned noPackets = 4;
constexpr unsigned packedAgain = 8;
constexpr unsigned unitsAlone = 16;
constexpr int payloadSize = 200;

void require(bool condition, const char* what)
{
    if (!condition)
    {
        std::fprintf(stderr, "broken: %s\n", what);
        std::abort();
    }
}

struct Record
{
    unsigned marks = 0;
    const std::uint8_t* data = nullptr;
    std::size_t size = 0;
};

std::vector<Record> recordsOf(const std::uint8_t* data, std::size_t size)
{
    constexpr std::size_t front = 3;
    std::vector<Record> records;
    for (std::size_t at = 0; size - at >= front;)
    {
        const std::size_t length =
            std::min<std::size_t>(refhost::readBig16(data + at + 1), size - at - front);
        records.push_back({data[at], data + at + front, length});
        at += front + length;
    }
    return records;
}

struct Format
{
    const char* encodingName;
    int clockRate;
};

constexpr Format formats[] = {{"H264", 90000},          {"H265", 90000},      {"JPEG", 90000},
                              {"MPEG4-GENERIC", 16000}, {"MP4A-LATM", 16000}, {"PCMU", 8000},
                              {"opus", 48000}};

refhost::PayloadDescription trackOf(const Format& format, const Record& description)
{
    refhost::PayloadDescription track;
    track.encodingName = format.encodingName;
    track.clockRate = format.clockRate;
    track.parameters["mode"] = "AAC-hbr";
    track.parameters["config"] = std::string(format.encodingName) == "MP4A-LATM" ? "400028103fc0" : "1408";
    if (description.data == nullptr)
    {
        return track;
    }
    std::string hex;
    for (std::size_t i = 0; i < description.size; ++i)
    {
        refhost::appendHex8(hex, description.data[i]);
    }
    track.parameters["config"] = hex;
    const std::string text = refhost::base64Of(description.data, description.size);
    for (const char* const name : {"sprop-parameter-sets", "sprop-vps", "sprop-sps", "sprop-pps"})
    {
        track.parameters[name] = text;
    }
    return track;
}

void checkPackets(const refhost::AccessUnit& unit)
{
    require(!unit.packets.empty(), "an access unit has packets");
    std::size_t end = 0;
    std::size_t payloads = 0;
    for (std::size_t i = 0; i < unit.packets.size(); ++i)
    {
        const auto& packet = unit.packets[i];
        require(packet.offset == end + refhost::AccessUnit::framingSize, "packets stand back to back");
        require(packet.size > refhost::AccessUnit::rtpHeaderSize, "packets have a payload");
        end = packet.offset + packet.size;
        require(end <= unit.bytes.size(), "packets are in the bytes");
        require(refhost::readBig32(unit.bytes.data() + packet.offset + 4) == unit.rtpTimestamp,
                "packets have the unit's timestamp");
        payloads += packet.size - refhost::AccessUnit::rtpHeaderSize;
    }
    require(end == unit.bytes.size() && payloads == unit.payloadBytes, "nothing but packets is in the bytes");
}

/// Of NAL units, where the payload format has fragments of them.
void checkFragments(refhost::Codec codec, const refhost::AccessUnit& unit)
{
    if (codec != refhost::Codec::h264 && codec != refhost::Codec::h265)
    {
        return;
    }
    const refhost::NalSyntax& syntax = refhost::NalSyntax::of(codec);
    bool open = false;
    for (const auto& packet : unit.packets)
    {
        const refhost::ByteSpan payload(
            unit.bytes.data() + packet.offset + refhost::AccessUnit::rtpHeaderSize,
            packet.size - refhost::AccessUnit::rtpHeaderSize);
        refhost::NalSyntax::Fragment fragment{};
        if (payload.size < syntax.headerSize() || syntax.kindOf(payload) != refhost::NalKind::fragment)
        {
            require(!open, "a fragmented unit has its end");
            continue;
        }
        require(syntax.readFragment(payload, fragment), "a fragment has a body");
        require(fragment.starts != open, "a fragmented unit has its start");
        open = !fragment.ends;
    }
    require(!open, "a fragmented unit has its end");
}

class Scene
{
public:
    Scene(unsigned options, const refhost::PayloadDescription& track) : options_(options)
    {
        depacketizer_ = refhost::Depacketizer::make(
            track, [this](refhost::DepacketizedUnit&& unit) { take(std::move(unit)); }, error_);
        require(depacketizer_ != nullptr || !error_.empty(), "a refusal says why");
        if (depacketizer_)
        {
            depacketizer_->setOutputs({(options & noMedia) == 0, (options & noPackets) == 0});
        }
    }

    void run(const Record& record)
    {
        constexpr unsigned marker = 1;
        constexpr unsigned lost = 2;
        constexpr unsigned another = 4;
        constexpr unsigned flush = 8;
        constexpr unsigned reset = 16;
        if (!depacketizer_)
        {
            return;
        }
        // Exactly as many bytes as there are, so that a read beyond them is seen.
        const std::unique_ptr<std::uint8_t[]> payload(new std::uint8_t[record.size]);
        std::copy(record.data, record.data + record.size, payload.get());
        timestamp_ += (record.marks & another) != 0 ? 3000U : 0U;
        refhost::RtpPacketView packet;
        packet.marker = (record.marks & marker) != 0;
        packet.timestamp = timestamp_;
        packet.payload = payload.get();
        packet.payloadSize = record.size;
        depacketizer_->push(packet, (record.marks & lost) != 0 ? 1 : 0);
        if ((record.marks & flush) != 0)
        {
            depacketizer_->flush();
        }
        if ((record.marks & reset) != 0)
        {
            depacketizer_->reset();
        }
    }

    void end()
    {
        if (depacketizer_)
        {
            depacketizer_->flush();
        }
    }

private:
    void take(refhost::DepacketizedUnit&& unit)
    {
        require(unit.format != nullptr, "a unit has a format");
        require((options_ & noMedia) == 0 || unit.bytes.empty(), "what nobody takes is not made");
        require((options_ & noPackets) == 0 || !unit.packets, "what nobody takes is not made");
        if (unit.packets)
        {
            checkPackets(*unit.packets);
            checkFragments(unit.format->codec, *unit.packets);
            require(unit.packets->keyFrame == unit.keyFrame, "both agree on key frames");
        }
        if ((options_ & packedAgain) != 0 && !unit.bytes.empty())
        {
            pack(unit);
        }
    }

    void pack(const refhost::DepacketizedUnit& unit)
    {
        refhost::EncodedUnit encoded;
        encoded.format = unit.format;
        encoded.bytes = unit.bytes;
        encoded.keyFrame = unit.keyFrame;
        std::vector<std::shared_ptr<refhost::AccessUnit>> made;
        const auto packetizer = refhost::Packetizer::make(unit.format->codec, payloadSize);
        const char* const refused = packetizer->pack(encoded, unit.timestamp, made);
        const bool nalUnits =
            unit.format->codec == refhost::Codec::h264 || unit.format->codec == refhost::Codec::h265;
        require(refused == nullptr || !nalUnits, "frames that came can be sent");
        for (const auto& each : made)
        {
            checkPackets(*each);
        }
        SubMediaInfo track;
        require(refhost::Packetizer::describe(*unit.format, "trackID=0", track), "a format can be described");
    }

    const unsigned options_;
    std::string error_;
    std::unique_ptr<refhost::Depacketizer> depacketizer_;
    std::uint32_t timestamp_ = 0;
};

/// The first record is the record of the format, the others are units.
void runUnits(const Format& format, const std::vector<Record>& records)
{
    refhost::MediaFormat media;
    media.codec = *refhost::Depacketizer::codecOf(format.encodingName);
    media.channels = 1;
    media.sampleRate = format.clockRate;
    media.codecData.assign(records[0].data, records[0].data + records[0].size);
    const auto shared = std::make_shared<const refhost::MediaFormat>(media);
    SubMediaInfo track;
    refhost::Packetizer::describe(media, "trackID=0", track);
    const auto packetizer = refhost::Packetizer::make(media.codec, payloadSize);
    for (std::size_t i = 1; i < records.size(); ++i)
    {
        refhost::EncodedUnit unit;
        unit.format = shared;
        unit.bytes.assign(records[i].data, records[i].data + records[i].size);
        unit.bytes.shrink_to_fit();
        unit.keyFrame = (records[i].marks & 1U) != 0;
        std::vector<std::shared_ptr<refhost::AccessUnit>> made;
        const char* const refused = packetizer->pack(unit, 0, made);
        require((refused == nullptr) == !made.empty(), "a unit is packed or refused");
        for (const auto& each : made)
        {
            checkPackets(*each);
            for (const auto& packet : each->packets)
            {
                require(packet.size <= payloadSize + refhost::AccessUnit::rtpHeaderSize, "packets fit");
            }
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < 2)
    {
        return 0;
    }
    const Format& format = formats[data[0] % std::size(formats)];
    const unsigned options = data[1];
    std::vector<Record> records = recordsOf(data + 2, size - 2);
    if (records.empty())
    {
        return 0;
    }
    if ((options & unitsAlone) != 0)
    {
        runUnits(format, records);
        return 0;
    }
    Record description;
    if ((options & described) != 0)
    {
        description = records[0];
        records.erase(records.begin());
    }
    Scene scene(options, trackOf(format, description));
    for (const Record& record : records)
    {
        scene.run(record);
    }
    scene.end();
    return 0;
}
