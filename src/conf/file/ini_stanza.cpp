#include "conf/file/ini_stanza.h"

namespace velmox {

std::string_view trimmedView(std::string_view text)
{
    const std::size_t first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(" \t") + 1 - first);
}

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
