#include "capture/file/capture_format.h"

#include <bit>
#include <cstring>
#include <xxhash.h>

namespace velmox {

std::size_t wholeRecordBytes(std::span<const unsigned char> bytes)
{
    if (bytes.size() < MonitorRecord::kFixedBytes) {
        return 0;
    }
    // In 64 bits: sizes that somebody made up must not come to a small sum.
    const MonitorRecord record(bytes.data());
    const std::uint64_t length =
        std::uint64_t{MonitorRecord::kFixedBytes} + record.nameBytes() + record.dataBytes();
    return length <= bytes.size() ? static_cast<std::size_t>(length) : 0;
}

} // namespace velmox

namespace velmox::capture_format {

namespace {

// The functions `put` and `Decoder::get` come in pairs, which name the same members in the same order: that
// order is the format. A change of either needs another `kVersion`.
static_assert(std::endian::native == std::endian::little, "numbers are written as they stand in memory");

template <class Number>
void put(std::string &out, Number number)
{
    static_assert(std::is_integral_v<Number>);
    out.append(reinterpret_cast<const char *>(&number), sizeof number);
}

void put(std::string &out, std::u16string_view text)
{
    put(out, static_cast<std::uint32_t>(text.size()));
    out.append(reinterpret_cast<const char *>(text.data()), text.size() * sizeof(char16_t));
}

void put(std::string &out, const Str &text)
{
    put(out, static_cast<std::uint32_t>(text.size()));
    out.append(text.view());
}

void put(std::string &out, const CapturedProcess &process)
{
    put(out, process.pid);
    put(out, std::u16string_view(process.image));
}

void put(std::string &out, const DriveMapping &mapping)
{
    put(out, mapping.drive);
    put(out, mapping.device);
}

void put(std::string &out, const CapturedOffset &offset)
{
    put(out, offset.second);
    put(out, offset.ticks);
}

void put(std::string &out, const CapturedStatus &status)
{
    put(out, status.status);
    put(out, status.text);
}

template <class Element>
void put(std::string &out, const std::vector<Element> &elements)
{
    put(out, static_cast<std::uint32_t>(elements.size()));
    for (const Element &element : elements) {
        put(out, element);
    }
}

/// Takes values off the front of bytes that anybody may have written.
class Decoder
{
public:
    explicit Decoder(std::string_view bytes) : rest_(bytes) {}

    std::string_view take(std::size_t bytes)
    {
        // The one place at which a decoder can leave its bytes: all others come down to it.
        if (bytes > rest_.size()) {
            throw CaptureException("ends too early");
        }
        const std::string_view taken = rest_.substr(0, bytes);
        rest_.remove_prefix(bytes);
        return taken;
    }

    template <class Number>
    requires std::is_integral_v<Number>
    void get(Number &number) { std::memcpy(&number, take(sizeof number).data(), sizeof number); }

    void get(std::u16string &text)
    {
        // In 64 bits, where no count of 32 makes the product wrap.
        const std::string_view bytes = take(std::size_t{takeCount()} * sizeof(char16_t));
        text.resize(bytes.size() / sizeof(char16_t));
        std::memcpy(text.data(), bytes.data(), bytes.size());
    }

    void get(Str &text) { text.assign(take(takeCount())); }

    void get(CapturedProcess &process)
    {
        get(process.pid);
        get(process.image);
    }

    void get(DriveMapping &mapping)
    {
        get(mapping.drive);
        get(mapping.device);
    }

    void get(CapturedOffset &offset)
    {
        get(offset.second);
        get(offset.ticks);
    }

    void get(CapturedStatus &status)
    {
        get(status.status);
        get(status.text);
    }

    // Grows with what is there, whatever the count claims.
    template <class Element>
    void get(std::vector<Element> &elements)
    {
        elements.clear();
        for (std::uint32_t left = takeCount(); left > 0; --left) {
            get(elements.emplace_back());
        }
    }

    std::string_view rest() const { return rest_; }

    void expectEnd() const
    {
        if (!rest_.empty()) {
            throw CaptureException("goes on behind its contents");
        }
    }

private:
    std::uint32_t takeCount()
    {
        std::uint32_t count = 0;
        get(count);
        return count;
    }

    std::string_view rest_;
};

/// Where the records stand behind facts of so many bytes. Records begin at a multiple of 8, as in the
/// driver's buffer, so that those whose name has an even address there have one here and it can be read in
/// place.
std::size_t alignedRecords(std::size_t bytes)
{
    constexpr std::size_t kAlignment = 8;
    return (bytes + kAlignment - 1) / kAlignment * kAlignment;
}

/// Counts records that lie wholly in the bytes and fill them, and the creations among them. Whoever walks the
/// records behind this trusts their sizes, as the monitor's rooms do.
void countRecords(std::span<const unsigned char> bytes, std::size_t &records, std::size_t &creations)
{
    records = 0;
    creations = 0;
    while (!bytes.empty()) {
        const std::size_t length = wholeRecordBytes(bytes);
        if (length == 0) {
            throw CaptureException("holds a record that is longer than its buffer");
        }
        const MonitorRecord record(bytes.data());
        ++records;
        creations += record.recordClass() == kProcessRecord && record.operation() == kProcessCreated ? 1 : 0;
        bytes = bytes.subspan(length);
    }
}

} // namespace

std::uint32_t checkSum(std::string_view bytes)
{
    return static_cast<std::uint32_t>(XXH64(bytes.data(), bytes.size(), 0));
}

std::string fileHead()
{
    std::string head(kMagic);
    put(head, kVersion);
    return head;
}

std::array<char, kBlockHeadBytes> encode(const BlockHead &head)
{
    std::string bytes;
    put(bytes, static_cast<std::uint32_t>(head.kind));
    put(bytes, head.bytes);
    put(bytes, head.sum);
    // Of the three words before it.
    put(bytes, checkSum(bytes));
    std::array<char, kBlockHeadBytes> out{};
    bytes.copy(out.data(), out.size());
    return out;
}

std::optional<BlockHead> decodeHead(std::string_view bytes)
{
    Decoder decoder(bytes);
    std::uint32_t kind = 0;
    std::uint32_t ownSum = 0;
    BlockHead head;
    decoder.get(kind);
    decoder.get(head.bytes);
    decoder.get(head.sum);
    decoder.get(ownSum);
    const bool isKnown = kind >= static_cast<std::uint32_t>(BlockKind::Start) &&
                         kind <= static_cast<std::uint32_t>(BlockKind::End);
    // A kind that is not known can only be damage: another version has another file head.
    if (ownSum != checkSum(bytes.substr(0, kBlockHeadBytes - sizeof ownSum)) || !isKnown ||
        head.bytes > kMostBlockBytes) {
        return std::nullopt;
    }
    head.kind = static_cast<BlockKind>(kind);
    return head;
}

void encode(const CaptureStart &start, std::string &out)
{
    put(out, start.time);
    for (const std::uint32_t word :
         {start.filter.events, start.filter.status, start.filter.ops, start.filter.hives}) {
        put(out, word);
    }
    put(out, std::u16string_view(start.userPath));
    put(out, start.controlSet);
    put(out, start.drives);
    put(out, start.processes);
}

void decode(std::string_view bytes, CaptureStart &start)
{
    Decoder decoder(bytes);
    decoder.get(start.time);
    decoder.get(start.filter.events);
    decoder.get(start.filter.status);
    decoder.get(start.filter.ops);
    decoder.get(start.filter.hives);
    decoder.get(start.userPath);
    decoder.get(start.controlSet);
    decoder.get(start.drives);
    decoder.get(start.processes);
    decoder.expectEnd();
}

void encode(const BufferFacts &facts, std::string &out)
{
    const std::size_t start = out.size();
    put(out, facts.time);
    put(out, facts.tickCount);
    put(out, facts.lostReads);
    put(out, facts.offsets);
    put(out, facts.statuses);
    put(out, facts.created);
    out.resize(start + alignedRecords(out.size() - start), '\0');
}

void decode(std::string_view bytes, CapturedBuffer &buffer)
{
    Decoder decoder(bytes);
    BufferFacts &facts = buffer.facts;
    decoder.get(facts.time);
    decoder.get(facts.tickCount);
    decoder.get(facts.lostReads);
    decoder.get(facts.offsets);
    decoder.get(facts.statuses);
    decoder.get(facts.created);
    const std::size_t read = bytes.size() - decoder.rest().size();
    decoder.take(alignedRecords(read) - read);
    const std::string_view records = decoder.rest();
    buffer.records = {reinterpret_cast<const unsigned char *>(records.data()), records.size()};
    std::size_t creations = 0;
    countRecords(buffer.records, buffer.recordCount, creations);
    // A replay hands out one image for each creation, in order: a list of another length would give processes
    // the images of others.
    if (creations != facts.created.size()) {
        throw CaptureException("has other processes than its records");
    }
}

void encode(const CaptureEnd &end, std::string &out)
{
    put(out, end.time);
    put(out, end.records);
    put(out, end.lostReads);
}

void decode(std::string_view bytes, CaptureEnd &end)
{
    Decoder decoder(bytes);
    decoder.get(end.time);
    decoder.get(end.records);
    decoder.get(end.lostReads);
    decoder.expectEnd();
}

} // namespace velmox::capture_format
