#include "refhost/rtp/payload/NalDepacketizer.h"

#include <algorithm>
#include <utility>

#include "refhost/rtp/payload/StartCode.h"

namespace refhost
{
namespace
{

const char* interleavingOf(Codec codec, const FormatParameters& parameters)
{
    const auto isPositive = [&](const char* name)
    {
        const auto found = parameters.find(name);
        return found != parameters.end() && found->second.find_first_not_of(" 0") != std::string::npos;
    };
    if (codec == Codec::h265)
    {
        return isPositive("sprop-max-don-diff") || isPositive("sprop-depack-buf-nalus")
                   ? "frames that are sent out of decoding order (sprop-max-don-diff) cannot be read"
                   : nullptr;
    }
    const auto mode = parameters.find("packetization-mode");
    return mode != parameters.end() && mode->second == "2"
               ? "interleaved packets (packetization-mode 2) cannot be read"
               : nullptr;
}

}  // namespace

std::unique_ptr<Depacketizer> NalDepacketizer::make(Codec codec, const PayloadDescription& track,
                                                    Deliver deliver, std::string& error)
{
    const char* const interleaving = interleavingOf(codec, track.parameters);
    if (interleaving != nullptr)
    {
        error = interleaving;
        return nullptr;
    }
    if (track.clockRate != infoOf(codec).clockRate)
    {
        error = "video has a clock rate of 90000 Hz, not " + std::to_string(track.clockRate);
        return nullptr;
    }
    return std::unique_ptr<Depacketizer>(
        new NalDepacketizer(NalSyntax::of(codec), track.parameters, std::move(deliver)));
}

NalDepacketizer::NalDepacketizer(const NalSyntax& syntax, const FormatParameters& parameters, Deliver deliver)
    : Depacketizer(std::move(deliver)), syntax_(syntax), sets_(syntax)
{
    sets_.takeDescribed(parameters);
    if (auto format = sets_.format())
    {
        setFormat(std::move(*format));
    }
}

const char* NalDepacketizer::take(const RtpPacketView& packet, std::uint32_t lost)
{
    const ByteSpan payload(packet.payload, packet.payloadSize);
    lossPending_ = lossPending_ || lost > 0;
    NalLead lead;
    const char* const refused = NalLead::read(syntax_, payload, lead);
    if (refused != nullptr)
    {
        lossPending_ = true;
        return refused;
    }
    separate(packet.timestamp, lead);
    if (!frame_.tooLarge && !fits(payload))
    {
        media_.clear();
        packets_.clear();
        open_ = {};
        frame_.tooLarge = true;
    }
    const bool tooLarge = frame_.tooLarge;
    add(payload, lead);
    if (packet.marker && frame_.hasSlice && ends_.onMarker())
    {
        finish();
    }
    return tooLarge ? "part of a frame that is too large" : nullptr;
}

/// Ends the frame that is gathered where this packet is not of it, and starts another where there is none.
void NalDepacketizer::separate(std::uint32_t timestamp, const NalLead& lead)
{
    if (gathering_ && timestamp != frame_.timestamp)
    {
        if (frame_.hasSlice)
        {
            if (lossPending_ && !ends_.mayBeWhole())
            {
                loseInside();
            }
            finish();
        }
        else
        {
            // Parameter sets under a timestamp of their own.
            frame_.timestamp = timestamp;
            frame_.lossInFront = frame_.lossInFront || std::exchange(lossPending_, false);
        }
    }
    else if (gathering_ && frame_.hasSlice)
    {
        const bool starts = lead.place == NalLead::Place::delimiter ||
                            (lead.place == NalLead::Place::start && ends_.mayBeWhole());
        if (starts)
        {
            finish();
        }
        else if (lead.place == NalLead::Place::more && ends_.mayBeWhole() && !lossPending_)
        {
            ends_.onMoreOfFrame();
        }
    }
    if (!gathering_)
    {
        start(timestamp, lead);
    }
    else if (std::exchange(lossPending_, false))
    {
        loseInside();
    }
}

void NalDepacketizer::start(std::uint32_t timestamp, const NalLead& lead)
{
    frame_ = {};
    frame_.timestamp = timestamp;
    frame_.lossInFront = std::exchange(lossPending_, false);
    frame_.startIsHere = lead.place == NalLead::Place::start || lead.place == NalLead::Place::delimiter;
    gathering_ = true;
    making_ = outputs();
    ends_.onNextFrame();
    if (lead.place == NalLead::Place::more)
    {
        frame_.damaged = true;
        if (hasLast_ && timestamp == lastTimestamp_ && !frame_.lossInFront)
        {
            ends_.onMoreOfFrame();
        }
    }
    const std::size_t large = isSet(lead.first) || lead.first == NalKind::keySlice ? 0 : 1;
    if (making_.media)
    {
        media_.reserve(expectedBytes_[large]);
    }
    packets_.expect(expectedBytes_[large] + expectedPackets_[large] * 16, expectedPackets_[large]);
}

void NalDepacketizer::loseInside()
{
    frame_.damaged = true;
    endFragment(false);
}

bool NalDepacketizer::fits(ByteSpan payload) const
{
    constexpr std::size_t front = AccessUnit::framingSize + AccessUnit::rtpHeaderSize;
    // Of the smallest units, lengths of four bytes instead of two double the size at most.
    return packets_.packets() < maxUnitPackets && media_.size() + 2 * payload.size + front <= maxUnitBytes &&
           packets_.bytes() + payload.size + front <= maxUnitBytes;
}

void NalDepacketizer::add(ByteSpan payload, const NalLead& lead)
{
    if (lead.kind == NalKind::fragment)
    {
        return addFragment(payload);
    }
    // A sender that leaves out the mark on the last fragment: nothing is missing.
    endFragment(true);
    if (lead.annexB)
    {
        return addAnnexB(payload);
    }
    passOn(payload);
    if (lead.kind == NalKind::aggregate)
    {
        forEachAggregated(payload.from(syntax_.headerSize()), syntax_.headerSize(),
                          [this](ByteSpan unit) { addUnit(unit); });
    }
    else
    {
        addUnit(payload);
    }
}

void NalDepacketizer::passOn(ByteSpan payload)
{
    if (making_.packets && !frame_.tooLarge)
    {
        packets_.add(payload, {});
    }
}

void NalDepacketizer::addAnnexB(ByteSpan payload)
{
    while (!payload.empty())
    {
        payload = payload.from(startCodeOf(payload));
        const ByteSpan unit = payload.first(nextStartCode(payload));
        payload = payload.from(unit.size);
        if (unit.size >= syntax_.headerSize() && isUnit(syntax_.kindOf(unit)))
        {
            addUnit(unit);
            if (making_.packets && !frame_.tooLarge && packets_.packets() < maxUnitPackets)
            {
                packets_.add(unit, {});
            }
        }
        else
        {
            frame_.damaged = true;
        }
        if (startCodeOf(payload) == 0)
        {
            return;
        }
    }
}

void NalDepacketizer::addUnit(ByteSpan unit)
{
    const NalKind kind = syntax_.kindOf(unit);
    if (isSlice(kind))
    {
        noteSlice(kind, unit.from(syntax_.headerSize()));
        frame_.hasWholeSlice = true;
    }
    else if (!noteUnit(kind, unit))
    {
        return;
    }
    if (making_.media && !frame_.tooLarge)
    {
        media_.add(unit);
    }
}

void NalDepacketizer::noteSlice(NalKind kind, ByteSpan body)
{
    if (!frame_.hasSlice && !NalSyntax::startsFrame(body))
    {
        frame_.damaged = true;
        if (hasLast_ && frame_.timestamp == lastTimestamp_ && !frame_.lossInFront)
        {
            ends_.onMoreOfFrame();
        }
    }
    frame_.hasSlice = true;
    frame_.hasKeySlice = frame_.hasKeySlice || kind == NalKind::keySlice;
    const bool mayStart = frame_.hasRecoveryPoint || frame_.hasSequenceSet;
    frame_.isIntra = frame_.isIntra && mayStart && (kind == NalKind::keySlice || syntax_.isIntra(body));
}

bool NalDepacketizer::noteUnit(NalKind kind, ByteSpan unit)
{
    if (kind == NalKind::delimiter || kind == NalKind::filler)
    {
        return false;
    }
    if (kind == NalKind::information)
    {
        frame_.hasRecoveryPoint = frame_.hasRecoveryPoint || syntax_.isRecoveryPoint(unit);
    }
    if (!isSet(kind))
    {
        return true;
    }
    const ParameterSets::Taken taken = sets_.take(unit);
    setsChanged_ = setsChanged_ || taken == ParameterSets::Taken::changed;
    frame_.damaged = frame_.damaged || taken == ParameterSets::Taken::refused;
    frame_.hasSequenceSet =
        frame_.hasSequenceSet || (kind == NalKind::sequenceSet && taken != ParameterSets::Taken::refused);
    // Some senders repeat the sets in front of each slice; decoders want them in front of the frame alone.
    return taken != ParameterSets::Taken::refused && !frame_.hasSlice;
}

void NalDepacketizer::addFragment(ByteSpan payload)
{
    NalSyntax::Fragment fragment{};
    syntax_.readFragment(payload, fragment);
    const ByteSpan header(fragment.header.data(), syntax_.headerSize());
    if (fragment.starts)
    {
        endFragment(true);
        openFragment(fragment);
    }
    else if (!open_.is || !syntax_.isSameType({open_.header.data(), syntax_.headerSize()}, header))
    {
        const NalKind kind = syntax_.kindOf(header);
        if (isSlice(kind))
        {
            noteSlice(kind, {});
        }
        loseInside();
        return;
    }
    passOn(payload);
    if (isSet(open_.kind))
    {
        if (openSet_.size() + fragment.body.size > ParameterSets::maxSetSize)
        {
            loseInside();
            return;
        }
        openSet_.insert(openSet_.end(), fragment.body.begin(), fragment.body.end());
    }
    else if (open_.inMedia && !frame_.tooLarge)
    {
        media_.append(fragment.body);
    }
    if (fragment.ends)
    {
        open_.ends = true;
        endFragment(true);
    }
}

void NalDepacketizer::openFragment(const NalSyntax::Fragment& fragment)
{
    const ByteSpan header(fragment.header.data(), syntax_.headerSize());
    open_.is = true;
    open_.firstPacket = packets_.packets();
    open_.header = fragment.header;
    open_.kind = syntax_.kindOf(header);
    open_.inMedia = false;
    if (isSet(open_.kind))
    {
        openSet_.assign(header.begin(), header.end());
        return;
    }
    if (isSlice(open_.kind))
    {
        noteSlice(open_.kind, fragment.body);
    }
    const bool belongs = open_.kind != NalKind::delimiter && open_.kind != NalKind::filler;
    if (belongs && making_.media && !frame_.tooLarge)
    {
        open_.inMedia = true;
        media_.open(header);
    }
}

void NalDepacketizer::endFragment(bool whole)
{
    if (!open_.is)
    {
        return;
    }
    const Open ended = std::exchange(open_, {});
    if (!whole)
    {
        packets_.cut(ended.firstPacket);
    }
    else if (!ended.ends && packets_.packets() > ended.firstPacket)
    {
        syntax_.markEnd(packets_.lastPayload());
    }
    if (isSet(ended.kind))
    {
        if (whole)
        {
            addUnit(openSet_);
        }
        return;
    }
    if (ended.inMedia)
    {
        media_.close(whole);
    }
    frame_.hasWholeSlice = frame_.hasWholeSlice || (whole && isSlice(ended.kind));
}

void NalDepacketizer::finish()
{
    endFragment(true);
    hasLast_ = true;
    lastTimestamp_ = frame_.timestamp;
    if (std::exchange(setsChanged_, false))
    {
        if (auto format = sets_.format())
        {
            setFormat(std::move(*format));
        }
    }
    if (frame_.tooLarge)
    {
        lossPending_ = true;
    }
    else if (frame_.hasSlice)
    {
        deliver(made());
    }
    forget();
}

DepacketizedUnit NalDepacketizer::made()
{
    DepacketizedUnit unit;
    unit.timestamp = frame_.timestamp;
    unit.keyFrame = frame_.hasKeySlice || frame_.isIntra;
    unit.damaged = frame_.damaged || (frame_.lossInFront && !(unit.keyFrame && frame_.startIsHere));
    const std::size_t large = unit.keyFrame ? 0 : 1;
    const auto expect = [](std::size_t& expected, std::size_t seen)
    { expected = std::max(seen + seen / 8, expected - expected / 8); };
    expect(expectedBytes_[large],
           std::max(media_.size(), packets_.bytes() - packets_.packets() * std::size_t{16}));
    expect(expectedPackets_[large], packets_.packets());
    if (unit.keyFrame && !frame_.hasSequenceSet)
    {
        putSetsInFront();
    }
    if (frame_.hasWholeSlice)
    {
        unit.bytes = media_.take();
    }
    if (making_.packets && frame_.hasWholeSlice)
    {
        unit.maxPayload = packets_.maxPayload();
        unit.packets = packets_.finish(frame_.timestamp, true);
        unit.packets->keyFrame = unit.keyFrame;
    }
    return unit;
}

/// Where the sender leaves them to the description.
void NalDepacketizer::putSetsInFront()
{
    NalUnits sets;
    sets_.forEach([&sets](ByteSpan set) { sets.add(set); });
    if (making_.media)
    {
        media_.putInFront(sets);
    }
    if (!making_.packets)
    {
        return;
    }
    std::vector<std::vector<std::uint8_t>> payloads;
    sets_.forEach([&payloads](ByteSpan set) { payloads.emplace_back(set.begin(), set.end()); });
    packets_.putInFront(payloads);
}

void NalDepacketizer::forget()
{
    media_.clear();
    packets_.clear();
    open_ = {};
    frame_ = {};
    gathering_ = false;
}

void NalDepacketizer::flush()
{
    if (!gathering_)
    {
        return;
    }
    if (lossPending_ && !ends_.mayBeWhole())
    {
        loseInside();
    }
    finish();
}

void NalDepacketizer::reset()
{
    forget();
    ends_.reset();
    lossPending_ = false;
    hasLast_ = false;
}

}  // namespace refhost
