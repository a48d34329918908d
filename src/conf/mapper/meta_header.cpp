#include "conf/mapper/meta_header.h"

#include "conf/mapper/meta_log.h"
#include "util/text/str_segment.h"

namespace velmox {

namespace {

constexpr char kSeparator[] = "/";
/// Parts of an absolute name, with the empty one before the first slash: user, app and type must be there.
constexpr std::size_t kFewestAbsoluteParts = 4;
/// Far more than there are levels. Trees are walked by recursion, which a name must not drive without end.
constexpr std::size_t kMostParts = 64;

StrVector splitHeader(const Str &name)
{
    StrVector parts;
    StrSegment(name.view()).splitInto(parts, kSeparator);
    if (!parts.empty() && parts.back().empty()) {
        parts.pop_back();
    }
    for (Str &part : parts) {
        if (!part.urlDecode()) {
            metaLog.error("Path component '%s' contains invalid UTF-8 encoding", part.c_str());
        }
    }
    return parts;
}

/// All bytes are encoded but the letters, digits and marks that URL encoding leaves alone. So the text is
/// ASCII, and nothing in it means anything to a reader of lines and headers.
void appendEncoded(Str &out, const Str &part)
{
    for (const char byte : part) {
        if (CharSet::urlUnreserved().contains(byte)) {
            out += byte;
        } else {
            out.appendFormat("%%%02X", static_cast<unsigned>(static_cast<unsigned char>(byte)));
        }
    }
}

bool isSameApp(const ConfPathBase &a, const ConfPathBase &b)
{
    return a.user().compareCaseless(b.user()) == 0 && a.app() == b.app();
}

Str relativeHeader(const StrVector &parts)
{
    Str name;
    for (const Str &part : parts) {
        name << (name.empty() ? "" : kSeparator);
        appendEncoded(name, part);
    }
    return name;
}

Str absoluteHeader(const ConfPathBase &path)
{
    return Str(kSeparator) << relativeHeader(path.segments());
}

} // namespace

std::optional<ConfPathBase> parseMetaHeader(const Str &name, const ConfPathBase &app)
{
    StrVector parts = splitHeader(name);
    if (parts.size() > kMostParts) {
        metaLog.error("Path has too many path parts: %s", name.c_str());
        return std::nullopt;
    }
    if (!name.startsWith(kSeparator)) {
        return ConfPathBase(app.user(), app.app(), std::move(parts));
    }
    if (parts.size() < kFewestAbsoluteParts) {
        metaLog.error("Absolute path has too few path parts: %s", name.c_str());
        return std::nullopt;
    }
    return ConfPathBase(parts[1].lowered(), parts[2], StrVector(parts.begin() + 3, parts.end()));
}

std::optional<Str> metaHeader(const ConfPathBase &path, const ConfPathBase &app)
{
    const bool isOwn = isSameApp(path, app);
    if (!isOwn && path.parts().empty()) {
        return std::nullopt;
    }
    Str name = isOwn ? relativeHeader(path.parts()) : absoluteHeader(path);
    // A last part that is empty is lost, and an empty first one makes the name an absolute one.
    const bool startsRight = name.startsWith(kSeparator) != isOwn;
    const std::optional<ConfPathBase> back = startsRight ? parseMetaHeader(name, app) : std::nullopt;
    return back && back->segments() == path.segments() ? std::optional<Str>(std::move(name)) : std::nullopt;
}

} // namespace velmox
