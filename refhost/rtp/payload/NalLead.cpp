#include "refhost/rtp/payload/NalLead.h"

#include <utility>

#include "refhost/rtp/payload/StartCode.h"

namespace refhost
{
namespace
{

NalLead::Place placeOf(NalKind kind, ByteSpan body)
{
    if (isSlice(kind))
    {
        return NalSyntax::startsFrame(body) ? NalLead::Place::start : NalLead::Place::more;
    }
    if (kind == NalKind::delimiter)
    {
        return NalLead::Place::delimiter;
    }
    return isSet(kind) || kind == NalKind::information ? NalLead::Place::start : NalLead::Place::anywhere;
}

}  // namespace

const char* NalLead::read(const NalSyntax& syntax, ByteSpan payload, NalLead& out)
{
    if (payload.size < syntax.headerSize())
    {
        return "cut short";
    }
    if (const std::size_t startCode = startCodeOf(payload); startCode > 0)
    {
        const ByteSpan unit = payload.from(startCode);
        out.annexB = true;
        if (unit.size < syntax.headerSize())
        {
            return "cut short";
        }
        out.first = syntax.kindOf(unit);
        out.place = placeOf(out.first, unit.from(syntax.headerSize()));
        return nullptr;
    }
    out.kind = syntax.kindOf(payload);
    if (out.kind == NalKind::refused)
    {
        return syntax.refusalOf(payload);
    }
    if (out.kind == NalKind::fragment)
    {
        NalSyntax::Fragment fragment{};
        if (!syntax.readFragment(payload, fragment))
        {
            return "cut short";
        }
        out.first = syntax.kindOf({fragment.header.data(), syntax.headerSize()});
        out.place = fragment.starts ? placeOf(out.first, fragment.body) : Place::more;
        return isUnit(out.first) ? nullptr : "a fragment of what cannot be fragmented";
    }
    if (out.kind != NalKind::aggregate)
    {
        out.first = out.kind;
        out.place = placeOf(out.kind, payload.from(syntax.headerSize()));
        return nullptr;
    }
    bool first = true;
    bool plain = true;
    const bool fit = forEachAggregated(payload.from(syntax.headerSize()), syntax.headerSize(),
                                       [&](ByteSpan unit)
                                       {
                                           const NalKind kind = syntax.kindOf(unit);
                                           plain = plain && isUnit(kind);
                                           if (std::exchange(first, false))
                                           {
                                               out.first = kind;
                                               out.place = placeOf(kind, unit.from(syntax.headerSize()));
                                           }
                                       });
    return !fit ? "the sizes in an aggregate do not fit" : plain ? nullptr : "a packet in an aggregate";
}

}  // namespace refhost
