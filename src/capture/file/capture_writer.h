#pragma once

#include "capture/file/capture.h"
#include "capture/file/capture_format.h"

#include <functional>

namespace velmox {

/// Writes a capture. Whole blocks go out, so that a file which ends anywhere still has all blocks before.
///
/// For one thread. What the sink throws passes through; nothing should be written then any more.
class CaptureWriter
{
public:
    /// Takes bytes for the end of the file.
    using Sink = std::function<void(std::string_view bytes)>;

    /// Hands blocks on when there are `gatheredBytes` of them: a call of the system for each made a recording
    /// slower than the monitor. With 0 each block goes out at once.
    explicit CaptureWriter(Sink sink, std::size_t gatheredBytes = 0)
        : sink_(std::move(sink)), gatheredBytes_(gatheredBytes)
    {
    }
    /// Hands on what was gathered, as far as the sink takes it.
    ~CaptureWriter();
    CaptureWriter(const CaptureWriter &) = delete;
    CaptureWriter &operator=(const CaptureWriter &) = delete;

    /// The first to be called, once.
    void write(const CaptureStart &start);
    /// `records` are whole.
    void write(const BufferFacts &facts, std::span<const unsigned char> records);
    /// The last one.
    void write(const CaptureEnd &end);
    /// Hands on all that was gathered.
    void flush();

    /// How long the file is with what was gathered.
    std::uint64_t bytes() const { return handedOn_ + wholeBytes_; }

private:
    // Begins a block behind those that were gathered, with room for its head.
    template <class Contents>
    void begin(const Contents &contents);
    // Puts the head in front of the block's contents.
    void end(capture_format::BlockKind kind);

    Sink sink_;
    std::size_t gatheredBytes_;
    std::uint64_t handedOn_ = 0;
    // Blocks, and the one at hand; keeps its memory.
    std::string blocks_;
    // Of those that are whole.
    std::size_t wholeBytes_ = 0;
};

} // namespace velmox
