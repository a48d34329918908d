#include "pipeline/input/events/value_rendering.h"

#include "pipeline/input/diagnostics/diagnostics.h"
#include "pipeline/input/driver/driver_protocol.h"
#include "util/match/regex.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace velmox {

namespace {

// Types of values as Windows' winnt.h numbers them (REG_NONE and so on); these are the ones that are
// rendered.
constexpr std::uint32_t kNone = 0;
constexpr std::uint32_t kString = 1;
constexpr std::uint32_t kExpandString = 2;
constexpr std::uint32_t kDword = 4;
constexpr std::uint32_t kStringList = 7;
constexpr std::uint32_t kQword = 11;

// By number. Those that are not rendered have their name in the event too.
constexpr std::array kDataTypes{
    "REG_NONE",
    "REG_SZ",
    "REG_EXPAND_SZ",
    "REG_BINARY",
    "REG_DWORD",
    "REG_DWORD_BIG_ENDIAN",
    "REG_LINK",
    "REG_MULTI_SZ",
    "REG_RESOURCE_LIST",
    "REG_FULL_RESOURCE_DESCRIPTOR",
    "REG_RESOURCE_REQUIREMENTS_LIST",
    "REG_QWORD",
};

// RegNtPostQueryKeySecurity and RegNtPostSetKeySecurity, whose data is a security descriptor whatever the
// type word says.
constexpr std::uint32_t kQuerySecurity = 37;
constexpr std::uint32_t kSetSecurity = 39;

// What could pass for the end of an event. Whoever may write a value must not be able to end one event in it
// and to begin another.
constexpr std::string_view STREAM_MARK = "***VELMOX***";
// Never destroyed: the watch of a parent may end the process while values are being rendered.
const Regex &STREAM_MARK_PATTERN =
    *new Regex(R"(\s-{3}velmox-regmon-end-of-event-{3}\s+\*{3}VELMOX\*{3}.+)", true, 0);

// A value of `dataBytes` read as 16-bit text at any alignment.
class WideData
{
public:
    WideData(const unsigned char *data, std::uint32_t dataBytes)
        : bytes_(data), units_(dataBytes / sizeof(char16_t))
    {
    }

    std::size_t units() const { return units_; }

    // Length of the string at `from`: up to its NUL, or to the end of the data where it has none.
    std::size_t lengthAt(std::size_t from) const
    {
        std::size_t at = from;
        while (at < units_ && (bytes_[2 * at] != 0 || bytes_[2 * at + 1] != 0)) {
            ++at;
        }
        return at - from;
    }

    void appendTo(Str &out, std::size_t from, std::size_t length) const
    {
        std::u16string room;
        const std::u16string_view text = wideTextAt(bytes_ + from * sizeof(char16_t), length, room);
        out.appendUtf16(text.data(), text.size());
    }

private:
    const unsigned char *bytes_;
    std::size_t units_;
};

template <class Word>
Word readWord(const unsigned char *data, std::uint32_t dataBytes)
{
    Word word = 0;
    // Values are little-endian, as is every machine that this is built for.
    std::memcpy(&word, data, std::min<std::size_t>(sizeof word, dataBytes));
    return word;
}

/// In both notations: 0x0000002a(42).
template <class Number>
void appendNumber(Str &out, Number number)
{
    constexpr char kDigits[] = "0123456789abcdef";
    out.append("0x");
    for (int shift = 8 * sizeof number - 4; shift >= 0; shift -= 4) {
        out.push_back(kDigits[static_cast<std::uint64_t>(number) >> shift & 15]);
    }
    out << '(' << number << ')';
}

void renderStringList(const WideData &list, Str &out)
{
    std::size_t from = 0;
    std::size_t length = list.lengthAt(0);
    std::size_t used = length + 1;
    // The last string counts only when a further NUL closes the list.
    while (used < list.units()) {
        list.appendTo(out, from, length);
        from = used;
        length = list.lengthAt(from);
        used += length + 1;
        out.push_back('\n');
    }
    if (!out.empty()) {
        out.pop_back();
    }
}

// True, with a line in the log, for text that could pass for the end of an event in the stream.
bool hasStreamMark(const Str &text)
{
    // A plain search first, which keeps the expression off nearly all values.
    if (text.size() < STREAM_MARK.size() || !text.contains(STREAM_MARK)) {
        return false;
    }
    if (!STREAM_MARK_PATTERN.match(text)) {
        return false;
    }
    monitorLog.error("Found pattern - \\n***VELMOX*** in data %s. This data will not be printed.",
                     text.c_str());
    return true;
}

void dropForgery(Str &text)
{
    if (hasStreamMark(text)) {
        text.clear();
    }
}

} // namespace

const char *dataTypeName(std::uint32_t operation, std::uint32_t dataType)
{
    if (operation == kQuerySecurity || operation == kSetSecurity) {
        return "REG_SD";
    }
    return dataType < kDataTypes.size() ? kDataTypes[dataType] : "UNKNOWN";
}

void renderValueData(std::uint32_t /*operation*/, std::uint32_t dataType, const unsigned char *data,
                     std::uint32_t dataBytes, Str &out)
{
    out.clear();
    if (data == nullptr || dataBytes == 0 || dataType == kNone) {
        return;
    }
    if (dataType == kString || dataType == kExpandString) {
        const WideData text(data, dataBytes);
        // With its NUL and what may stand behind it, which the event's line cuts off.
        text.appendTo(out, 0, text.units());
        dropForgery(out);
    } else if (dataType == kDword) {
        appendNumber(out, readWord<std::uint32_t>(data, dataBytes));
    } else if (dataType == kStringList) {
        renderStringList(WideData(data, dataBytes), out);
        dropForgery(out);
    } else if (dataType == kQword) {
        appendNumber(out, static_cast<long long>(readWord<std::uint64_t>(data, dataBytes)));
    }
}

} // namespace velmox
