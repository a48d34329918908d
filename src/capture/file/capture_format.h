#pragma once

#include "capture/file/capture.h"

#include <array>
#include <optional>
#include <string_view>

/// The bytes of a capture: the heads, and the contents of each kind of block, all little-endian.
namespace velmox::capture_format {

/// A byte above 0x7F, so that no ASCII text begins like this; CR LF, which a transfer that changes line ends
/// spoils; Ctrl-Z, at which the `type` of Windows stops. The same idea as in PNG (RFC 2083, 12.11).
inline constexpr std::string_view kMagic = "\x89VCAP\r\n\x1a";
inline constexpr std::uint32_t kVersion = 1;
inline constexpr std::size_t kFileHeadBytes = 12;

enum class BlockKind : std::uint32_t
{
    Start = 1,
    Buffer = 2,
    End = 3,
};

/// What stands in front of a block's contents.
struct BlockHead
{
    BlockKind kind = BlockKind::Start;
    std::uint32_t bytes = 0;
    /// Of the contents.
    std::uint32_t sum = 0;
};
inline constexpr std::size_t kBlockHeadBytes = 16;
/// Contents are never longer, so that a wrong length costs no more memory than this. The driver's buffers
/// have at most 64 KiB.
inline constexpr std::uint32_t kMostBlockBytes = 16 * 1024 * 1024;

/// The low half of XXH64 with the seed 0. It guards against damage, not against forgery. A CRC-32 takes as
/// long as half of what the monitor does with a record.
std::uint32_t checkSum(std::string_view bytes);

std::string fileHead();
/// The head with a sum of its own, for a length must be sure before it is trusted.
std::array<char, kBlockHeadBytes> encode(const BlockHead &head);
/// Nothing if the head is damaged, or says what no head can say.
std::optional<BlockHead> decodeHead(std::string_view bytes);

// Contents, put behind what stands. Those of a buffer leave out the records, which come behind them up to the
// block's end. To decode throws CaptureException where the bytes are no such contents.
void encode(const CaptureStart &start, std::string &out);
void encode(const BufferFacts &facts, std::string &out);
void encode(const CaptureEnd &end, std::string &out);
void decode(std::string_view bytes, CaptureStart &start);
void decode(std::string_view bytes, CapturedBuffer &buffer);
void decode(std::string_view bytes, CaptureEnd &end);

} // namespace velmox::capture_format
