#include "companion/stream/registry_text.h"

#include "util/text/str.h"

#include <algorithm>
#include <charconv>
#include <cstdint>

namespace velmox {

namespace {

/// A path at which a hive begins, in upper case, and the hive's short name.
struct Root
{
    std::string_view path;
    std::string_view hive;
};

// The first that fits counts, so the current hardware profile stands in front of the machine's root, below
// which it lies.
constexpr Root kRoots[] = {
    {"HKLM", "HKLM"},
    {"HKCU", "HKCU"},
    {"HKU", "HKU"},
    {"HKCC", "HKCC"},
    {"\\REGISTRY\\MACHINE\\SYSTEM\\CURRENTCONTROLSET\\HARDWARE PROFILES\\CURRENT", "HKCC"},
    {"\\REGISTRY\\MACHINE", "HKLM"},
    {"\\REGISTRY\\USER", "HKU"},
};

constexpr char upper(char c)
{
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

/// Whether the path is that root or lies below it; the roots are in upper case.
bool isBelow(std::string_view path, std::string_view root)
{
    return path.size() >= root.size() &&
           std::equal(root.begin(), root.end(), path.begin(), [](char a, char b) { return a == upper(b); }) &&
           (path.size() == root.size() || path[root.size()] == '\\');
}

/// What the monitor makes of the data of a type.
enum class Form
{
    /// Its content is not rendered.
    Empty,
    Text,
    /// One string a line.
    Lines,
    Dword,
    Qword,
};

struct Type
{
    std::string_view name;
    Form form;
};

// Reads and writes of security descriptors say REG_SD whatever the type of the record, by which their data is
// rendered all the same: any text may stand there, or none.
constexpr Type kTypes[] = {
    {"REG_SZ", Form::Text},
    {"REG_DWORD", Form::Dword},
    {"REG_BINARY", Form::Empty},
    {"REG_NONE", Form::Empty},
    {"REG_MULTI_SZ", Form::Lines},
    {"REG_EXPAND_SZ", Form::Text},
    {"REG_QWORD", Form::Qword},
    {"REG_DWORD_BIG_ENDIAN", Form::Empty},
    {"REG_LINK", Form::Empty},
    {"REG_RESOURCE_LIST", Form::Empty},
    {"REG_FULL_RESOURCE_DESCRIPTOR", Form::Empty},
    {"REG_RESOURCE_REQUIREMENTS_LIST", Form::Empty},
    {"REG_SD", Form::Text},
    {"UNKNOWN", Form::Empty},
};

const Type *findType(std::string_view name)
{
    const auto *const found = std::ranges::find(kTypes, name, &Type::name);
    return found == std::end(kTypes) ? nullptr : found;
}

/// The decimal number of "0xHEX(DECIMAL)", in which HEX has all digits of a `Word`; empty where the text has
/// another form, or its two numbers are not the same. `Decimal` says how the bits of `Word` are read in
/// decimal.
template <class Word, class Decimal>
std::string_view decimalOf(std::string_view text)
{
    constexpr std::size_t kDigits = 2 * sizeof(Word);
    if (text.size() < kDigits + 5 || !text.starts_with("0x") || text[kDigits + 2] != '(' ||
        text.back() != ')') {
        return {};
    }
    const std::string_view hex = text.substr(2, kDigits);
    const std::string_view decimal = text.substr(kDigits + 3, text.size() - kDigits - 4);
    Word word = 0;
    Decimal number = 0;
    const auto hexEnd = std::from_chars(hex.data(), hex.data() + hex.size(), word, 16);
    const auto decimalEnd = std::from_chars(decimal.data(), decimal.data() + decimal.size(), number);
    const bool isWhole = hexEnd.ptr == hex.data() + hex.size() && decimalEnd.ec == std::errc() &&
                         decimalEnd.ptr == decimal.data() + decimal.size();
    return isWhole && static_cast<Word>(number) == word ? decimal : std::string_view();
}

// The monitor writes the decimal of a REG_DWORD without a sign, that of a REG_QWORD with one.
std::string_view numberOf(Form form, std::string_view text)
{
    return form == Form::Dword ? decimalOf<std::uint32_t, std::uint32_t>(text)
                               : decimalOf<std::uint64_t, std::int64_t>(text);
}

} // namespace

RegistryPath splitRegistryPath(std::string_view path, bool hasValue)
{
    RegistryPath parts;
    parts.key = path;
    const auto *const root =
        std::ranges::find_if(kRoots, [path](const Root &candidate) { return isBelow(path, candidate.path); });
    if (root != std::end(kRoots)) {
        parts.hive = root->hive;
        parts.key = path.substr(std::min(root->path.size() + 1, path.size()));
    }
    if (hasValue) {
        const std::size_t end = parts.key.rfind('\\');
        parts.value = parts.key.substr(end == std::string_view::npos ? 0 : end + 1);
        parts.key = parts.key.substr(0, end == std::string_view::npos ? 0 : end);
    }
    return parts;
}

std::string foldedText(std::string_view text)
{
    return std::string(Str(text).lowered().view());
}

std::string comparableRegistryPath(std::string_view path)
{
    const RegistryPath parts = splitRegistryPath(path, false);
    std::string comparable(parts.hive);
    comparable += '\\';
    comparable += parts.key;
    return foldedText(comparable);
}

std::string_view lastComponent(std::string_view path)
{
    const std::size_t end = path.find_last_of("\\/");
    return path.substr(end == std::string_view::npos ? 0 : end + 1);
}

bool isValueText(std::string_view type, std::string_view text)
{
    const Type *const row = findType(type);
    if (row == nullptr) {
        return false;
    }
    const bool isText = row->form == Form::Text || row->form == Form::Lines;
    const bool isNumber = row->form == Form::Dword || row->form == Form::Qword;
    return text.empty() || isText || (isNumber && !numberOf(row->form, text).empty());
}

void readValueStrings(std::string_view type, std::string_view text, std::vector<std::string_view> &out)
{
    out.clear();
    const Type *const row = findType(type);
    const Form form = row == nullptr ? Form::Empty : row->form;
    // An empty REG_SZ is one empty string; an empty REG_SD is data that was not rendered.
    if (form == Form::Text && (!text.empty() || type != "REG_SD")) {
        out.push_back(text);
    } else if (form == Form::Lines && !text.empty()) {
        for (std::size_t end = text.find('\n'); end != std::string_view::npos; end = text.find('\n')) {
            out.push_back(text.substr(0, end));
            text.remove_prefix(end + 1);
        }
        out.push_back(text);
    } else if (form == Form::Dword || form == Form::Qword) {
        if (const std::string_view number = numberOf(form, text); !number.empty()) {
            out.push_back(number);
        }
    }
}

} // namespace velmox
