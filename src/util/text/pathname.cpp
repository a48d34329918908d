#include "util/text/pathname.h"

#include <algorithm>
#include <cctype>

namespace velmox {

namespace {

bool startsWithDrive(std::string_view utf8)
{
    return utf8.size() >= 2 && std::isalpha(static_cast<unsigned char>(utf8[0])) != 0 && utf8[1] == ':';
}

// The test has always stopped short of Z; existing configurations hold paths that were joined by it, and they
// must keep joining the same way.
bool startsWithKnownDrive(std::u16string_view text)
{
    return driveLength(text) != 0 && text[0] != u'Z' && text[0] != u'z';
}

/// Where the extension's point stands in a file name; the name's length when there is none.
std::size_t extensionPoint(const Pathname &name)
{
    const std::size_t point = name.rfind(u'.');
    return point == Pathname::npos || point == 0 ? name.size() : point;
}

} // namespace

std::size_t Pathname::append(const char *utf8, std::size_t length)
{
    if (length == 0) {
        return size();
    }
    std::string_view text(utf8, length);
    // Separators in front of a component are no second one: "a" and "\b" join to "a\b". A drive cannot go
    // behind anything, but in front of nothing it is the path.
    if (!empty() || !startsWithDrive(text)) {
        ensureTrailingSlash();
        text.remove_prefix(std::min(text.find_first_not_of('\\'), text.size()));
    }
    const std::size_t offset = size();
    appendUtf8(text.data(), text.size());
    return offset;
}

std::size_t Pathname::append(const char16_t *text16, std::size_t length)
{
    if (length == 0) {
        return size();
    }
    std::u16string_view text(text16, length);
    if (!empty() || !startsWithKnownDrive(text)) {
        ensureTrailingSlash();
        text.remove_prefix(std::min(text.find_first_not_of(kSeparator), text.size()));
    }
    const std::size_t offset = size();
    WideStr::append(text);
    return offset;
}

Pathname Pathname::concat(std::string_view utf8) const
{
    Pathname result(*this);
    result.appendUtf8(utf8.data(), utf8.size());
    return result;
}

Pathname Pathname::concat(std::u16string_view text) const
{
    Pathname result(*this);
    result += text;
    return result;
}

Pathname Pathname::join(std::string_view utf8) const
{
    Pathname result(*this);
    result.append(utf8);
    return result;
}

Pathname Pathname::join(std::u16string_view component) const
{
    Pathname result(*this);
    result.append(component);
    return result;
}

bool Pathname::isAbsolute() const
{
    const std::size_t drive = driveLength(view());
    return size() > drive && isSlash((*this)[drive]);
}

Pathname Pathname::basename() const
{
    const std::size_t drive = driveLength(view());
    std::size_t end = size();
    while (end > drive && isSlash((*this)[end - 1])) {
        --end;
    }
    // Nothing but a drive or slashes: the name of a root is the root, with or without its separator.
    if (end == drive) {
        return empty() ? Pathname() : Pathname(substr(0, drive)).concat(u"\\");
    }
    std::size_t start = end;
    while (start > drive && !isSlash((*this)[start - 1])) {
        --start;
    }
    return substr(start, end - start);
}

Str Pathname::stem() const
{
    const Pathname name = basename();
    return Str::fromUtf16(name.view().substr(0, extensionPoint(name)));
}

Str Pathname::extension() const
{
    const Pathname name = basename();
    const std::size_t point = extensionPoint(name);
    return point == name.size() ? Str() : Str::fromUtf16(name.view().substr(point + 1));
}

void Pathname::stripTrailingSlashes()
{
    // The separator behind the drive is the root itself: "C:" without it means that drive's current folder.
    const std::size_t root = driveLength(view()) + 1;
    while (size() > root && back() == kSeparator) {
        pop_back();
    }
}

void Pathname::collapseSlashes()
{
    // In place: what is kept never overtakes what is read. The unit at index 1 always stays, so that two
    // separators in front, a network path, remain two.
    std::size_t kept = 0;
    for (const char16_t unit : *this) {
        const bool second = kept >= 2 && unit == kSeparator && (*this)[kept - 1] == kSeparator;
        if (!second) {
            (*this)[kept++] = unit;
        }
    }
    resize(kept);
}

void Pathname::split(std::vector<Pathname> &out) const
{
    if (empty()) {
        return;
    }
    std::size_t start = 0;
    for (std::size_t at = find(kSeparator); at != npos; at = find(kSeparator, start)) {
        out.emplace_back(substr(start, at - start));
        start = at + 1;
    }
    out.emplace_back(substr(start));
}

void Pathname::ensureTrailingSlash()
{
    if (empty() || back() != kSeparator) {
        push_back(kSeparator);
    }
}

std::size_t Pathname::parentLength() const
{
    const auto skipBack = [this](std::size_t end, bool separators) {
        while (end > 0 && ((*this)[end - 1] == kSeparator) == separators) {
            --end;
        }
        return end;
    };
    // Separators behind the last component, the component, the separators before it.
    const std::size_t parent = skipBack(skipBack(skipBack(size(), true), false), true);
    const std::size_t drive = driveLength(view());
    // What is left otherwise is a root, whose separator belongs to it, or a bare name.
    if (parent != 0 && parent != drive) {
        return parent;
    }
    const bool rooted = size() > drive && (*this)[drive] == kSeparator;
    return drive + (rooted ? 1 : 0);
}

} // namespace velmox
