#include "capture/file/capture_reader.h"

#include "util/time/timeval.h"

namespace velmox {

using namespace capture_format;

CaptureReader::CaptureReader(Source source) : source_(std::move(source))
{
    readFileHead();
    BlockKind kind = BlockKind::Start;
    if (isCut_ || !readBlock(kind)) {
        return;
    }
    if (kind != BlockKind::Start) {
        fail("is not the one that tells of the machine");
    }
    decodeBlock(start_);
}

bool CaptureReader::next(CapturedBuffer &buffer)
{
    BlockKind kind = BlockKind::Start;
    if (isAtEnd_ || !readBlock(kind)) {
        return false;
    }
    switch (kind) {
    case BlockKind::Buffer:
        decodeBlock(buffer);
        expectFacts(buffer);
        records_ += buffer.recordCount;
        return true;
    case BlockKind::End:
        decodeBlock(end_);
        // A block that is missing as a whole leaves no other trace.
        if (end_.records != records_) {
            fail("counts other records than there are");
        }
        expectNoMore();
        return false;
    case BlockKind::Start:
        break;
    }
    fail("tells of the machine a second time");
}

void CaptureReader::readFileHead()
{
    const std::string expected = fileHead();
    std::string head(kFileHeadBytes, '\0');
    head.resize(source_(head.data(), head.size()));
    // A file that ends within the head of a capture is one that was cut off; an empty one, too.
    if (!head.starts_with(kMagic.substr(0, head.size()))) {
        throw CaptureException("is no capture");
    }
    if (head.size() < kFileHeadBytes) {
        isCut_ = true;
        isAtEnd_ = true;
    } else if (head != expected) {
        throw CaptureException("is a capture of another version than this program can read");
    }
}

// False at the end of what is whole. Bytes that are missing are no damage: who records writes some blocks
// with one call, and can be killed between any two, or within one.
bool CaptureReader::readBlock(BlockKind &kind)
{
    ++number_;
    char bytes[kBlockHeadBytes];
    isCut_ = source_(bytes, sizeof bytes) < sizeof bytes;
    if (!isCut_) {
        // The head has a sum of its own, as its length decides how much is read: with a wrong length a
        // damaged file would look like one that was cut off.
        const std::optional<BlockHead> head = decodeHead({bytes, sizeof bytes});
        if (!head) {
            fail("has a damaged head");
        }
        contents_.resize(head->bytes);
        isCut_ = source_(contents_.data(), contents_.size()) < contents_.size();
        if (!isCut_ && checkSum(contents_) != head->sum) {
            fail("is damaged: its check sum is wrong");
        }
        kind = head->kind;
    }
    isAtEnd_ = isCut_;
    return !isCut_;
}

template <class Contents>
void CaptureReader::decodeBlock(Contents &contents) const
{
    try {
        decode(contents_, contents);
    } catch (const CaptureException &exception) {
        fail(exception.what());
    }
}

// Of the buffer's records each needs a local time, and one on the registry a status's text. Whoever renders
// them would put in another text without a word, so it is damage here.
void CaptureReader::expectFacts(const CapturedBuffer &buffer)
{
    const BufferFacts &facts = buffer.facts;
    for (const CapturedStatus &status : facts.statuses) {
        statuses_.insert(status.status);
    }
    std::size_t offsets = 0;
    for (std::span<const unsigned char> rest = buffer.records; !rest.empty();) {
        const MonitorRecord record(rest.data());
        const std::uint64_t second = record.timestamp() / Timeval::kTicksPerSecond;
        if (second != lastSecond_ &&
            (offsets == facts.offsets.size() || facts.offsets[offsets++].second != second)) {
            fail("lacks the local time of a record");
        }
        lastSecond_ = second;
        if (record.recordClass() == kRegistryRecord && !statuses_.contains(record.status())) {
            fail("lacks the status of a record");
        }
        rest = rest.subspan(record.length());
    }
}

void CaptureReader::expectNoMore()
{
    isAtEnd_ = true;
    char byte = 0;
    if (source_(&byte, 1) != 0) {
        throw CaptureException("goes on behind its end");
    }
}

void CaptureReader::fail(const char *reason) const
{
    throw CaptureException(
        Str::fromFormat("block %llu %s", static_cast<unsigned long long>(number_), reason));
}

} // namespace velmox
