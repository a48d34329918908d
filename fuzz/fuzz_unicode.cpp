#include "fuzz/fuzz_target.h"
#include "tests/support/memory_stream.h"
#include "util/text/wide_str.h"

namespace velmox::fuzz {
namespace {

using testing::MemoryReader;
using testing::MemoryWriter;

constexpr char kMark[] = "\xEF\xBB\xBF";

bool isWellFormed(const Str &text)
{
    return Str::isValidUtf8(text.data(), text.size());
}

void checkConversions(std::string_view bytes)
{
    const WideStr wide = WideStr::fromUtf8(bytes);
    const Str back = Str::fromUtf16(wide);
    require(isWellFormed(back), "converted text is well-formed");
    require((back == bytes) == Str::isValidUtf8(bytes.data(), bytes.size()),
            "just well-formed text comes back");

    const std::u16string units = wideText(bytes);
    const Str narrow = Str::fromUtf16(units);
    require(isWellFormed(narrow), "any 16-bit text becomes well-formed");
    const WideStr again = WideStr::fromUtf8(narrow);
    require(again.size() == units.size(), "half a surrogate becomes one unit");
    require(Str::fromUtf16(again) == narrow, "converting settles at once");
}

/// The decoders differ in how many U+FFFD stand for one ill-formed run.
Str withSingleReplacements(Str text)
{
    while (text.replaceAll("\uFFFD\uFFFD", "\uFFFD") != 0) {
    }
    return text;
}

std::vector<Str> linesOf(const std::string &bytes)
{
    MemoryReader reader(bytes);
    reader.setReplaceBadInput(true);
    std::vector<Str> lines;
    for (Str line; reader.readLine(line);) {
        require(isWellFormed(line), "a line that was read is well-formed");
        lines.push_back(withSingleReplacements(line));
    }
    return lines;
}

/// Text written in an encoding reads back, and where it was cut for the writer makes no difference.
void checkStreams(TextEncodingWord encoding, unsigned seed, std::string_view bytes)
{
    MemoryWriter whole(encoding);
    whole.setReplaceBadInput(true);
    whole.write(bytes);
    whole.finishCharacter();
    MemoryWriter pieces(encoding);
    pieces.setReplaceBadInput(true);
    inPieces(bytes, seed, [&](std::string_view piece) { pieces.write(piece); });
    pieces.finishCharacter();
    require(whole.bytes == pieces.bytes, "the same bytes for any split");

    Str expected = Str::fromUtf16(WideStr::fromUtf8(bytes));
    if (expected.contains(Str::concat("\r", kMark))) {
        return; // the mark keeps the CR from being a part of the line end, until it is dropped
    }
    expected.replaceAll(kMark, "");
    std::vector<Str> lines;
    for (std::string_view rest = expected; !rest.empty();) {
        const std::size_t end = rest.find('\n');
        std::string_view line = rest.substr(0, end);
        rest.remove_prefix(end == rest.npos ? rest.size() : end + 1);
        if (end != rest.npos && line.ends_with('\r')) {
            line.remove_suffix(1);
        }
        lines.push_back(withSingleReplacements(line));
    }
    require(linesOf(whole.bytes) == lines, "what was written reads back");
}

} // namespace

/// Conversions between the encodings, of text of any kind.
VELMOX_FUZZ_TARGET(unicode)
{
    Input input(bytes);
    const unsigned encoding = 2 + input.choice(5);
    const bool crLf = input.choice(2) != 0;
    const unsigned seed = input.choice(256) * 2654435761u;
    checkConversions(input.rest());
    if (!input.rest().starts_with('\0')) { // UTF-16 behind its mark would look like UTF-32
        checkStreams(kByteOrderMarkFlag | (crLf ? kCrLfFlag : 0) | encoding, seed, input.rest());
    }
    linesOf(std::string(input.rest()));
}

} // namespace velmox::fuzz
