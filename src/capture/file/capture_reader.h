#pragma once

#include "capture/file/capture.h"
#include "capture/file/capture_format.h"

#include <functional>
#include <unordered_set>

namespace velmox {

/// Reads a capture that anybody may have written, and trusts nothing in it unchecked: it gives whole and
/// sound blocks, or says what is wrong. For one thread.
///
/// A capture may end early, when whoever recorded it was killed or the disk was full. What is there is then
/// read up to its last whole block, and `isCut` is true behind it.
class CaptureReader
{
public:
    /// Fills `out` with the next bytes of the file and returns how many there were, fewer only at its end.
    using Source = std::function<std::size_t(char *out, std::size_t bytes)>;

    /// Reads up to the first buffer. Throws CaptureException for a file that is no capture, as do all the
    /// others for a damaged block; what the source throws passes through.
    explicit CaptureReader(Source source);

    /// Empty when the file is cut off before.
    const CaptureStart &start() const { return start_; }
    /// The next buffer; false at the end.
    bool next(CapturedBuffer &buffer);

    // Behind the last buffer.

    /// Whether the file ends without its totals.
    bool isCut() const { return isCut_; }
    /// All zeros if the file is cut off.
    const CaptureEnd &end() const { return end_; }

private:
    void readFileHead();
    bool readBlock(capture_format::BlockKind &kind);
    template <class Contents>
    void decodeBlock(Contents &contents) const;
    [[noreturn]] void fail(const char *reason) const;
    // Throws unless the facts, with those of all buffers before, have what the records ask for.
    void expectFacts(const CapturedBuffer &buffer);
    void expectNoMore();

    Source source_;
    CaptureStart start_;
    CaptureEnd end_;
    bool isCut_ = false;
    bool isAtEnd_ = false;
    // Of the block at hand. The records handed out lie in it.
    std::string contents_;
    std::uint64_t number_ = 0;
    // Of all buffers so far.
    std::uint64_t records_ = 0;
    std::uint64_t lastSecond_ = ~std::uint64_t{0};
    std::unordered_set<std::uint32_t> statuses_;
};

} // namespace velmox
