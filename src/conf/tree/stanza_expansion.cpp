#include "conf/tree/stanza_expansion.h"

#include "util/system/environment.h"

namespace velmox {

namespace {

constexpr CharSet kNameBytes("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_");

std::string_view leadingName(std::string_view text)
{
    std::size_t length = 0;
    while (length < text.size() && kNameBytes.contains(text[length])) {
        ++length;
    }
    return text.substr(0, length);
}

struct Reference
{
    std::string_view name;
    std::size_t length = 0; ///< of the whole reference; 0 when there is none
};

/// The name between two marks.
Reference enclosedReference(std::string_view text, std::string_view opening, char closing)
{
    if (!text.starts_with(opening)) {
        return {};
    }
    const std::string_view name = leadingName(text.substr(opening.size()));
    const std::size_t end = opening.size() + name.size();
    if (name.empty() || end >= text.size() || text[end] != closing) {
        return {};
    }
    return {name, end + 1};
}

/// `$NAME` ends with its last letter; "${" is no name, and so asks for the form in braces.
Reference referenceAt(std::string_view text)
{
    if (text[0] == '%') {
        return enclosedReference(text, "%", '%');
    }
    const std::string_view name = text[0] == '$' ? leadingName(text.substr(1)) : std::string_view();
    return name.empty() ? enclosedReference(text, "${", '}') : Reference{name, name.size() + 1};
}

/// Values are not looked through for further references.
Str expandEnvironment(const Str &text)
{
    Str out;
    for (std::string_view rest = text; !rest.empty();) {
        const Reference reference = referenceAt(rest);
        const WideStr value = reference.length == 0
                                  ? WideStr()
                                  : environmentVariable(Pathname::fromUtf8(reference.name).c_str());
        // No reference, or one to a variable that is not set: the text stays as it is, byte by byte.
        if (value.empty()) {
            out += rest.front();
            rest.remove_prefix(1);
        } else {
            out.appendUtf16(value.data(), value.size());
            rest.remove_prefix(reference.length);
        }
    }
    return out;
}

} // namespace

Str stanzaExpansion(const Str &name, const Pathname &rootDirectory)
{
    constexpr std::string_view kScheme = "://";
    for (std::size_t at = name.find(kScheme); at != Str::npos; at = name.find(kScheme, at + 1)) {
        // The first place that is relative counts; an absolute one before it, as in "a://b://./c", is passed.
        const std::size_t place = at + kScheme.size();
        if (place < name.size() && (name[place] == '.' || name[place] == '\\')) {
            return expandEnvironment(Str(name).replace(place, 1, rootDirectory.toStr()));
        }
    }
    return Str();
}

} // namespace velmox
