#pragma once

#include "capture/file/capture.h"
#include "capture/file/capture_format.h"

#include <functional>

namespace velmox {

/// Writes a capture, each block with one call, so that a file which ends anywhere still has all blocks
/// before.
///
/// For one thread. What the sink throws passes through; nothing should be written then any more.
class CaptureWriter
{
public:
    /// Takes bytes for the end of the file.
    using Sink = std::function<void(std::string_view bytes)>;

    explicit CaptureWriter(Sink sink) : sink_(std::move(sink)) {}

    /// The first to be called, once.
    void write(const CaptureStart &start);
    /// `records` are whole.
    void write(const BufferFacts &facts, std::span<const unsigned char> records);
    /// The last one.
    void write(const CaptureEnd &end);

    /// How long the file is by now.
    std::uint64_t bytes() const { return bytes_; }

private:
    // Into `block_`, with room for the head.
    template <class Contents>
    void gather(const Contents &contents);
    // Puts the head in front of what was gathered, and hands on both at once.
    void flush(capture_format::BlockKind kind);

    Sink sink_;
    std::uint64_t bytes_ = 0;
    // The block at hand, its head in front; keeps its memory.
    std::string block_;
};

} // namespace velmox
