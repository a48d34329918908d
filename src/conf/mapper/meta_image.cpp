#include "conf/mapper/meta_image.h"

#include "conf/file/ini_file.h"
#include "conf/mapper/meta_file.h"
#include "conf/mapper/meta_header.h"
#include "conf/mapper/meta_log.h"

#include <algorithm>

namespace velmox {

namespace {

bool isAtOrBelow(const ConfPathBase &path, const ConfPathBase &top)
{
    return path.user().compareCaseless(top.user()) == 0 && path.app() == top.app() &&
           path.parts().size() >= top.parts().size() &&
           std::equal(top.parts().begin(), top.parts().end(), path.parts().begin());
}

/// The names of the stanzas at a path, and with `below` of those below it. Several may spell the same path.
StrVector stanzasOf(const IniFile &image, const ConfPathBase &app, const ConfPathBase &path, bool below)
{
    StrVector names;
    for (const auto &[name, stanza] : image) {
        const std::optional<ConfPathBase> found = parseMetaHeader(name, app);
        if (found && isAtOrBelow(*found, path) && (below || found->parts() == path.parts())) {
            names.push_back(name);
        }
    }
    return names;
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

MetaEdit setMetaSetting(IniFile &image, const ConfPathBase &app, const ConfPathBase &path, const Str &key,
                        const Str &value)
{
    const StrVector stanzas = stanzasOf(image, app, path, false);
    if (key == kMetaDataKey && value.empty()) {
        return removeKey(image, stanzas, key);
    }
    // The last one that spells the path has the say.
    const std::optional<Str> name =
        stanzas.empty() ? metaHeader(path, app) : std::optional<Str>(stanzas.back());
    if (!name) {
        metaLog.error("No stanza can be named for: %s", path.toStr().c_str());
        return MetaEdit::Refused;
    }
    return setKey(image.stanza(*name), key, value);
}

MetaEdit removeMetaStanzas(IniFile &image, const ConfPathBase &app, const ConfPathBase &path)
{
    const StrVector names = stanzasOf(image, app, path, true);
    for (const Str &name : names) {
        image.removeStanza(name);
    }
    return names.empty() ? MetaEdit::Unchanged : MetaEdit::Changed;
}

} // namespace velmox
