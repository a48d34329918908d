#include "conf/mapper/meta_image.h"

#include "conf/mapper/meta_file.h"

#include <algorithm>

namespace velmox {

namespace {

bool isAtOrBelow(const StrVector &segments, const StrVector &top)
{
    return segments.size() >= top.size() && std::equal(top.begin(), top.end(), segments.begin());
}

MetaEdit removeKey(IniFile &image, const StrVector &stanzas, const Str &key)
{
    bool removed = false;
    for (const Str &name : stanzas) {
        removed = image.findStanza(name)->removeKey(key) || removed;
    }
    return removed ? MetaEdit::Changed : MetaEdit::Unchanged;
}

MetaEdit setKey(IniStanza &stanza, const Str &key, const Str &value)
{
    IniEntry *const entry = stanza.findKey(key);
    if (!entry) {
        stanza.insertKey(key, value);
        return MetaEdit::Changed;
    }
    if (entry->value() == value.view()) {
        return MetaEdit::Unchanged;
    }
    entry->setValue(value);
    return MetaEdit::Changed;
}

} // namespace

MetaImage::MetaImage(IniFile image, const ConfPathBase &app) : image_(std::move(image)), app_(app)
{
    for (const auto &[name, stanza] : image_) {
        if (const std::optional<ConfPathBase> path = parseMetaHeader(name, app_)) {
            names_[path->segments()].push_back(name);
        }
    }
}

MetaEdit MetaImage::set(const ConfPathBase &path, const Str &key, const Str &value)
{
    const StrVector segments = path.segments();
    auto found = names_.find(segments);
    if (key == kMetaDataKey && value.empty()) {
        return found == names_.end() ? MetaEdit::Unchanged : removeKey(image_, found->second, key);
    }
    if (found == names_.end()) {
        const std::optional<Str> name = metaHeader(path, app_);
        if (!name) {
            metaLog.error("No stanza can be named for: %s", path.toStr().c_str());
            return MetaEdit::Refused;
        }
        found = names_.emplace(segments, StrVector{*name}).first;
    }
    // The last one that spells the path has the say.
    return setKey(image_.stanza(found->second.back()), key, value);
}

MetaEdit MetaImage::remove(const ConfPathBase &path)
{
    const StrVector top = path.segments();
    const auto first = names_.lower_bound(top);
    auto last = first;
    for (; last != names_.end() && isAtOrBelow(last->first, top); ++last) {
        for (const Str &name : last->second) {
            image_.removeStanza(name);
        }
    }
    const bool removed = first != last;
    names_.erase(first, last);
    return removed ? MetaEdit::Changed : MetaEdit::Unchanged;
}

} // namespace velmox
