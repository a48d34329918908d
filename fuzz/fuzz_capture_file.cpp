#include "capture/file/capture_reader.h"
#include "capture/file/capture_writer.h"
#include "capture/replay/capture_replay.h"
#include "fuzz/fuzz_target.h"

#include <cstdlib>
#include <optional>

namespace velmox::fuzz {
namespace {

using namespace capture_format;

std::string bytesOfHex(std::string_view text)
{
    std::string bytes;
    for (; text.size() >= 2; text.remove_prefix(2)) {
        const char pair[] = {text[0], text[1], '\0'};
        bytes += static_cast<char>(std::strtoul(pair, nullptr, 16));
    }
    return bytes;
}

void appendBlock(BlockKind kind, std::string_view contents, std::string &file)
{
    const auto head = encode({kind, static_cast<std::uint32_t>(contents.size()), checkSum(contents)});
    file.append(head.data(), head.size()).append(contents);
}

/// A capture whose sums are right: most inputs would not come further than to the first of them.
std::string sealed(const std::vector<Str> &blocks)
{
    std::string start;
    encode(CaptureStart{.userPath = u"\\REGISTRY\\USER\\S-1"}, start);
    std::string file = fileHead();
    appendBlock(BlockKind::Start, start, file);
    for (const Str &block : blocks) {
        appendBlock(BlockKind::Buffer, bytesOfHex(block.view()), file);
    }
    return file;
}

struct Outcome
{
    std::size_t buffers = 0;
    bool isSound = true;
    std::string stream;
};

Outcome replayed(std::string_view file)
{
    char *memory = nullptr;
    std::size_t size = 0;
    std::FILE *const out = open_memstream(&memory, &size);
    Outcome outcome;
    try {
        CaptureReader reader([file](char *bytes, std::size_t wanted) mutable {
            const std::size_t count = file.copy(bytes, wanted);
            file.remove_prefix(count);
            return count;
        });
        Stanzas stanzas;
        stanzas["WinRegMon://all"].set("type", ".*");
        stanzas["WinRegMon://user"].set("hive", "HKCU\\\\.*");
        CaptureReplay replay(reader.start(), stanzas, {"default", true}, out);
        for (CapturedBuffer buffer; reader.next(buffer); ++outcome.buffers) {
            replay.take(buffer);
        }
    } catch (const BaseException &) {
        outcome.isSound = false;
    }
    std::fclose(out);
    outcome.stream.assign(memory, size);
    std::free(memory);
    return outcome;
}

} // namespace
} // namespace velmox::fuzz

// Bytes are a capture, or are refused, and what can be read of a sound one that is cut off is its beginning.
VELMOX_FUZZ_TARGET(capture_file)
{
    using namespace velmox::fuzz;
    Input input(bytes);
    const unsigned form = input.choice(3);
    const unsigned cutAt = input.choice(256);
    const std::string file = form == 0   ? std::string(input.rest())
                             : form == 1 ? bytesOfHex(input.rest())
                                         : sealed(input.lines());
    const Outcome whole = replayed(file);
    const Outcome cut = replayed(std::string_view(file).substr(0, file.size() * cutAt / 256));
    require(!whole.isSound || cut.isSound, "a sound capture stays sound when it is cut off");
    require(cut.buffers <= whole.buffers || !whole.isSound, "nothing comes of what is cut off");
    constexpr std::string_view kEnd = "</stream>\r\n";
    const bool hasEvents = cut.stream.ends_with(kEnd);
    require(hasEvents || cut.stream.empty(), "the stream has its end");
    if (hasEvents && whole.isSound) {
        require(whole.stream.starts_with(cut.stream.substr(0, cut.stream.size() - kEnd.size())),
                "the stream of the beginning");
    }
}
