#include "capture/file/capture_writer.h"

#include <algorithm>

namespace velmox {

using namespace capture_format;

template <class Contents>
void CaptureWriter::begin(const Contents &contents)
{
    // Without what a block that failed has left behind, or what was handed on.
    blocks_.resize(wholeBytes_);
    blocks_.append(kBlockHeadBytes, '\0');
    encode(contents, blocks_);
}

CaptureWriter::~CaptureWriter()
{
    try {
        flush();
    } catch (const std::exception &) {
        // Nobody is left to hear of it: a recording that wants to know flushes before.
    }
}

void CaptureWriter::write(const CaptureStart &start)
{
    blocks_ = fileHead();
    wholeBytes_ = blocks_.size();
    begin(start);
    end(BlockKind::Start);
}

void CaptureWriter::write(const BufferFacts &facts, std::span<const unsigned char> records)
{
    begin(facts);
    blocks_.append(reinterpret_cast<const char *>(records.data()), records.size());
    end(BlockKind::Buffer);
}

void CaptureWriter::write(const CaptureEnd &totals)
{
    begin(totals);
    end(BlockKind::End);
}

void CaptureWriter::flush()
{
    const std::size_t bytes = wholeBytes_;
    // Also if the sink fails: half of it may be there already.
    wholeBytes_ = 0;
    handedOn_ += bytes;
    if (bytes != 0) {
        sink_(std::string_view(blocks_).substr(0, bytes));
    }
}

void CaptureWriter::end(BlockKind kind)
{
    // The head is written last, as it has the length and the sum of the contents, into the room that was left
    // for it.
    const std::string_view contents = std::string_view(blocks_).substr(wholeBytes_ + kBlockHeadBytes);
    const auto head = encode({kind, static_cast<std::uint32_t>(contents.size()), checkSum(contents)});
    std::ranges::copy(head, blocks_.begin() + static_cast<std::ptrdiff_t>(wholeBytes_));
    wholeBytes_ = blocks_.size();
    if (wholeBytes_ >= gatheredBytes_) {
        flush();
    }
}

} // namespace velmox
