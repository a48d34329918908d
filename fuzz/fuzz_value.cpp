#include "fuzz/fuzz_target.h"
#include "pipeline/input/events/status_texts.h"
#include "pipeline/input/events/value_rendering.h"
#include "pipeline/input/rules/drive_map.h"
#include "pipeline/input/rules/hive_names.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace velmox::fuzz {
namespace {

bool isSpace(char byte)
{
    return byte != '\0' && std::strchr(" \t\n\v\f\r", byte) != nullptr;
}

/// Whether a line goes on. Every line end of Unicode counts.
bool goesOn(std::string_view text)
{
    constexpr std::string_view kLineEnds[] = {"\n", "\v", "\f", "\r", "\u0085", "\u2028", "\u2029"};
    return !text.empty() && std::none_of(std::begin(kLineEnds), std::end(kLineEnds),
                                         [&](std::string_view lineEnd) { return text.starts_with(lineEnd); });
}

/// The forged end of an event, looked for from its last part backwards.
bool holdsForgery(std::string_view text)
{
    constexpr std::string_view kEnd = "---velmox-regmon-end-of-event---";
    constexpr std::string_view kMark = "***VELMOX***";
    for (std::size_t at = text.find(kMark); at != text.npos; at = text.find(kMark, at + 1)) {
        std::string_view before = text.substr(0, at);
        const bool spaced = !before.empty() && isSpace(before.back());
        while (!before.empty() && isSpace(before.back())) {
            before.remove_suffix(1);
        }
        if (spaced && goesOn(text.substr(at + kMark.size())) && before.ends_with(kEnd) &&
            before.size() > kEnd.size() && isSpace(before[before.size() - kEnd.size() - 1])) {
            return true;
        }
    }
    return false;
}

/// A list's strings as far as a further NUL closes each, joined by line feeds.
Str listText(const std::u16string &units)
{
    Str text;
    std::size_t from = 0;
    for (std::size_t end = units.find(u'\0'); end != units.npos && end + 1 < units.size();
         end = units.find(u'\0', from)) {
        text << (from == 0 ? "" : "\n")
             << Str::fromUtf16(std::u16string_view(units).substr(from, end - from));
        from = end + 1;
    }
    return text;
}

Str rendered(std::uint32_t type, const void *data, std::size_t length)
{
    // A copy of its own at an odd address, so that a byte too far is seen.
    const std::unique_ptr<unsigned char[]> copy(new unsigned char[length + 1]);
    std::memcpy(copy.get() + 1, data, length);
    Str text = "left over";
    renderValueData(7, type, copy.get() + 1, static_cast<std::uint32_t>(length), text);
    return text;
}

void checkStrings(const std::u16string &units)
{
    const std::size_t length = units.size() * sizeof(char16_t);
    const Str plain = Str::fromUtf16(units);
    const Str list = listText(units);
    require(rendered(1, units.data(), length) == (holdsForgery(plain) ? Str() : plain), "a string's text");
    require(rendered(2, units.data(), length) == rendered(1, units.data(), length), "both kinds of string");
    require(rendered(7, units.data(), length) == (holdsForgery(list) ? Str() : list), "a list's text");
}

void checkNumbers(std::string_view bytes)
{
    std::uint64_t word = 0;
    std::memcpy(&word, bytes.data(), std::min<std::size_t>(bytes.size(), sizeof word));
    const Str dword = rendered(4, bytes.data(), bytes.size());
    const Str qword = rendered(11, bytes.data(), bytes.size());
    require(bytes.empty() ? dword.empty()
                          : std::strtoul(dword.c_str(), nullptr, 16) == static_cast<std::uint32_t>(word),
            "a 32-bit number");
    require(bytes.empty() ? qword.empty() : std::strtoull(qword.c_str(), nullptr, 16) == word,
            "a 64-bit number");
}

void checkNames(const std::u16string &path)
{
    HiveNames names;
    names.fill(u"\\REGISTRY\\USER\\S-1-5-21-1");
    const Str text = Str::fromUtf16(path);
    Str shortened = text;
    names.shortenHiveRoot(shortened);
    require(shortened == text || shortened.size() < text.size(), "a shortened path is shorter");
    WideStr translated(path);
    names.translateHiveRoot(translated);
    DriveMap drives([](DriveMappings &out) { out.push_back({"c:", "\\device\\harddiskvolume2"}); });
    const Str shown = drives.deviceToDrive(text);
    require(shown == text || shown.startsWith("c:"), "a device becomes its drive");
    drives.translateProcessDrive(text);
}

} // namespace

/// Values of each type, and paths, from bytes and 16-bit text of any kind.
VELMOX_FUZZ_TARGET(value)
{
    Input input(bytes);
    const auto type = static_cast<std::uint32_t>(input.choice(256));
    const std::u16string units = wideText(input.rest());
    checkStrings(units);
    checkNumbers(input.rest());
    checkNames(units);
    rendered(type, bytes.data(), bytes.size());
    require(dataTypeName(type, type + 1) != nullptr, "each type has a name");
    require(StatusTexts().text(type) == "N/A", "no status has a text without the system");
}

} // namespace velmox::fuzz
