#include "conf/file/ini_file.h"
#include "fuzz/fuzz_target.h"
#include "tests/support/memory_stream.h"

namespace velmox::fuzz {
namespace {

using testing::MemoryReader;
using testing::MemoryWriter;

IniFile loaded(std::string_view bytes)
{
    MemoryReader reader{std::string(bytes)};
    IniFile image;
    image.read(reader, Pathname(u"C:\\fuzz.conf"));
    return image;
}

std::string written(IniFile &image)
{
    MemoryWriter writer;
    image.write(writer);
    return writer.bytes;
}

std::vector<Str> settings(const IniFile &image)
{
    std::vector<Str> all;
    for (const auto &[name, stanza] : image) {
        all.push_back(name);
        for (const auto &[key, value, entry] : stanza) {
            all.emplace_back(key);
            all.emplace_back(value);
        }
    }
    return all;
}

constexpr std::string_view kKeySpecials("=[\\\n\0", 5);

bool holds(std::string_view text, char byte)
{
    return text.find(byte) != text.npos;
}

/// Lines that are no comments are kept as they were read, without the backslashes and NULs of their key: what
/// they are when read again is left open.
bool isLeftOpen(const StrVector &lines)
{
    for (const Str &line : lines) {
        const std::string_view text = trimmedView(line);
        const bool comment = text.starts_with('#') || text.starts_with(';');
        if (holds(text, '\r') || (!comment && text.find_first_of(kKeySpecials) != text.npos)) {
            return true;
        }
    }
    return false;
}

/// The form cannot tell a CR in front of a line end from a part of the line end, nor a key that begins like a
/// comment from a comment, and has no escape for a NUL in a key.
bool isLeftOpen(const IniFile &image)
{
    if (isLeftOpen(image.headComments()) || isLeftOpen(image.tailComments())) {
        return true;
    }
    for (const auto &[name, stanza] : image) {
        if (holds(name, '\r') || isLeftOpen(stanza.comments())) {
            return true;
        }
        for (const auto &[key, value, entry] : stanza) {
            if (holds(key, '\r') || holds(key, '\0') || holds(value, '\r') || key.starts_with('#') ||
                key.starts_with(';') || isLeftOpen(entry.comments())) {
                return true;
            }
        }
    }
    return false;
}

void checkRewriting(IniFile &image)
{
    const std::string once = written(image);
    IniFile again = loaded(once);
    require(settings(again) == settings(image), "rewriting changes no setting");
    require(written(again) == once, "rewriting settles at once");
}

/// Text that every encoding can carry: well-formed, without U+FEFF, which readers drop, and NULs, which they
/// take out of keys and values.
bool isPlain(std::string_view text)
{
    return Str::isValidUtf8(text.data(), text.size()) && text.find("\xEF\xBB\xBF") == text.npos &&
           !holds(text, '\0');
}

Str unescaped(std::string_view text)
{
    Str result(text);
    result.replaceAll("~n", "\n");
    return result;
}

/// The first line chooses encodings; each other one is a header or a setting, in which "~n" is a line feed.
void checkEdits(Input input)
{
    IniFile image;
    const unsigned encoding = input.choice(7);
    const unsigned form = input.choice(4);
    const bool marked = (form & 1) != 0 || encoding > 2;
    image.setEncoding((marked ? kByteOrderMarkFlag : 0) | ((form & 2) != 0 ? kCrLfFlag : 0) | encoding);
    Str stanza = "default";
    for (const Str &line : input.lines()) {
        const std::size_t tab = line.find('\t');
        if (!isPlain(line)) {
            continue;
        }
        if (tab == Str::npos) {
            stanza = unescaped(line);
            image.stanza(stanza);
        } else {
            image.stanza(stanza).insertKey(unescaped(line.view().substr(0, tab)),
                                           unescaped(line.view().substr(tab + 1)));
        }
    }
    if (!isLeftOpen(image)) {
        checkRewriting(image);
    }
}

} // namespace

/// Whatever was read or put into an image is there again after it was written and read.
VELMOX_FUZZ_TARGET(conf_file)
{
    Input input(bytes);
    if (input.choice(2) == 0) {
        checkEdits(input);
        return;
    }
    IniFile image = loaded(input.rest());
    if (isLeftOpen(image)) {
        written(image);
    } else {
        checkRewriting(image);
    }
}

} // namespace velmox::fuzz
