#include "conf/tree/conf_path_base.h"

#include "conf/ground/conf_exceptions.h"

namespace velmox {

namespace {

constexpr CharSet kSlashes("/\\");

} // namespace

ConfPathBase::ConfPathBase(const Str &user, const Str &app, StrVector parts)
    : parts_(std::move(parts)), expansions_(parts_.size())
{
    setUser(user);
    setApp(app);
}

const Str &ConfPathBase::type() const
{
    static const Str none;
    return parts_.empty() ? none : parts_.front();
}

void ConfPathBase::addPart(const Str &part, const Str &expansion)
{
    parts_.push_back(part);
    expansions_.push_back(expansion);
}

void ConfPathBase::removeLastPart()
{
    parts_.pop_back();
    expansions_.pop_back();
}

StrVector ConfPathBase::segments() const
{
    // In lower case, as users are found in any case and trees compare bytes.
    StrVector segments = {user_.lowered(), app_};
    segments.insert(segments.end(), parts_.begin(), parts_.end());
    return segments;
}

Str ConfPathBase::toStr() const
{
    Str text;
    text << "/" << user_ << "/" << app_;
    for (const Str &part : parts_) {
        text << "/" << part;
    }
    return text;
}

void refuseTraversal(const ConfPathBase &path, const Str &part)
{
    if (part.findFirst(kSlashes, 0, true) >= 0) {
        throw ConfPathDirectoryTraversalException(Str::fromFormat(
            "Directory traversal risk in %s at segment \"%s\"", path.toStr().c_str(), part.c_str()));
    }
}

void refuseTraversal(const ConfPathBase &path)
{
    refuseTraversal(path, path.app());
    // The stanza is passed over: it stands inside a file.
    const StrVector &parts = path.parts();
    for (std::size_t part = 0; part < parts.size(); ++part) {
        if (part != kStanzaLevel - kTypeLevel) {
            refuseTraversal(path, parts[part]);
        }
    }
}

} // namespace velmox
