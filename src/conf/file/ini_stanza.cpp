#include "conf/file/ini_stanza.h"

namespace velmox {

IniEntry *IniStanza::findKey(std::string_view key)
{
    const auto found = keys_.find(key);
    return found == keys_.end() ? nullptr : &found->value;
}

const IniEntry *IniStanza::findKey(std::string_view key) const
{
    return const_cast<IniStanza *>(this)->findKey(key);
}

bool IniStanza::insertKey(const Str &key, const Str &value, StrVector comments)
{
    return keys_.insert(key, value, std::move(comments)).second;
}

void IniStanza::merge(const IniStanza &other)
{
    for (const auto &[key, entry] : other.keys_) {
        keys_.insert(key, entry);
    }
}

} // namespace velmox
