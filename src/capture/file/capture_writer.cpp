#include "capture/file/capture_writer.h"

#include <algorithm>

namespace velmox {

using namespace capture_format;

template <class Contents>
void CaptureWriter::gather(const Contents &contents)
{
    block_.assign(kBlockHeadBytes, '\0');
    encode(contents, block_);
}

void CaptureWriter::write(const CaptureStart &start)
{
    sink_(fileHead());
    bytes_ = kFileHeadBytes;
    gather(start);
    flush(BlockKind::Start);
}

void CaptureWriter::write(const BufferFacts &facts, std::span<const unsigned char> records)
{
    gather(facts);
    block_.append(reinterpret_cast<const char *>(records.data()), records.size());
    flush(BlockKind::Buffer);
}

void CaptureWriter::write(const CaptureEnd &end)
{
    gather(end);
    flush(BlockKind::End);
}

void CaptureWriter::flush(BlockKind kind)
{
    // The head is written last, as it has the length and the sum of the contents, into the room that was left
    // for it.
    const std::string_view contents = std::string_view(block_).substr(kBlockHeadBytes);
    const auto head = encode({kind, static_cast<std::uint32_t>(contents.size()), checkSum(contents)});
    std::ranges::copy(head, block_.begin());
    sink_(block_);
    bytes_ += block_.size();
}

} // namespace velmox
