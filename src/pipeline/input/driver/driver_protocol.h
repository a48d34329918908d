#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

// The room `driver`: the kernel driver's service, its device, the wire format and the worker that reads from
// it. It hands on buffers of records and does not ask what they mean.

/// The wire format between the program and its kernel driver. All integers are little-endian.
namespace velmox {

/// The device's name for CreateFileW.
inline constexpr char16_t kDeviceName[] = u"\\\\.\\VelmoxTrace";

/// FILE_DEVICE_UNKNOWN, function 0x801, METHOD_NEITHER, FILE_ANY_ACCESS, put together as CTL_CODE of Windows'
/// winioctl.h does it: the driver writes into the caller's buffer, with no copy by the system in between.
///
/// It answers at once: with as many whole records as fit, with nothing when none waits, and with
/// ERROR_INSUFFICIENT_BUFFER, by which nothing is lost, when the next one does not fit.
inline constexpr std::uint32_t IOCTL_READ_EVENTS = 0x222007;
/// FILE_DEVICE_UNKNOWN, function 0x803, METHOD_BUFFERED, FILE_ANY_ACCESS.
inline constexpr std::uint32_t IOCTL_SET_FILTER = 0x22200C;

/// Bits of `MonitorFilterConfig::hives`.
inline constexpr std::uint32_t kUserHives = 1;
inline constexpr std::uint32_t kMachineHives = 2;

/// What the driver is asked to report: the input of IOCTL_SET_FILTER.
struct MonitorFilterConfig
{
    std::uint32_t events;
    std::uint32_t status;
    std::uint32_t ops;
    std::uint32_t hives;
};
static_assert(sizeof(MonitorFilterConfig) == 16);
static_assert(offsetof(MonitorFilterConfig, status) == 4);
static_assert(offsetof(MonitorFilterConfig, ops) == 8);
static_assert(offsetof(MonitorFilterConfig, hives) == 12);

/// All record classes: registry operations, processes and images. Never narrowed: even where no stanza asks
/// for processes, their records are what names the process of a registry event.
inline constexpr std::uint32_t kAllEvents = 7;
/// A word of the driver's own; it is always sent as it stands here.
inline constexpr std::uint32_t kStatusMask = 0x17;

inline constexpr std::uint32_t kRegistryRecord = 1;
inline constexpr std::uint32_t kProcessRecord = 2;
inline constexpr std::uint32_t kImageRecord = 4;

/// `operation` of a process record that reports a creation; any other value reports an exit.
inline constexpr std::uint32_t kProcessCreated = 1;

/// UTF-16 text that stands at any address: in place, or as a copy in `room` where the address is odd, at
/// which 16-bit text must not be read. `length` counts units.
inline std::u16string_view wideTextAt(const unsigned char *bytes, std::size_t length, std::u16string &room)
{
    if (reinterpret_cast<std::uintptr_t>(bytes) % alignof(char16_t) == 0) {
        return {reinterpret_cast<const char16_t *>(bytes), length};
    }
    room.resize(length);
    std::memcpy(room.data(), bytes, length * sizeof(char16_t));
    return room;
}

/// One event record, read in place at any alignment. The view owns nothing, and trusts the sizes that the
/// driver wrote: nobody else writes records, and a check for each would be paid by all.
///
/// Layout: eleven 32-bit words, of which words 7 and 8 are one 64-bit time; the name in UTF-16; a 16-bit
/// zero; the data. Records stand back to back without padding, so that behind data of odd length one begins
/// at an odd address. Word 1 is the driver's own.
class MonitorRecord
{
public:
    static constexpr std::uint32_t kNameOffset = 44;
    static constexpr std::uint32_t kFixedBytes = 46;

    explicit MonitorRecord(const unsigned char *start) : start_(start) {}

    std::uint32_t recordClass() const { return read<std::uint32_t>(0); }
    std::uint32_t operation() const { return read<std::uint32_t>(8); }
    /// The kernel status of a registry operation; for an image, non-zero when the driver cut the path short.
    std::uint32_t status() const { return read<std::uint32_t>(12); }
    std::uint32_t pid() const { return read<std::uint32_t>(16); }
    std::uint32_t parentPid() const { return read<std::uint32_t>(20); }
    std::uint32_t dataType() const { return read<std::uint32_t>(24); }
    /// UTC in 100-nanosecond units since 1 January 1601.
    std::uint64_t timestamp() const { return read<std::uint64_t>(28); }
    std::uint32_t nameBytes() const { return read<std::uint32_t>(36); }
    std::uint32_t dataBytes() const { return read<std::uint32_t>(40); }

    /// The name is a counted string with a 16-bit length in bytes, so only the low half of `nameBytes` counts
    /// for its text, while all of it counts for the step to the next record.
    const unsigned char *name() const { return start_ + kNameOffset; }
    std::size_t nameUnits() const { return (nameBytes() & 0xFFFF) / sizeof(char16_t); }

    const unsigned char *data() const { return start_ + kFixedBytes + nameBytes(); }

    /// Bytes from this record to the next, in 32-bit arithmetic.
    std::uint32_t length() const { return kFixedBytes + nameBytes() + dataBytes(); }

private:
    template <class Word>
    Word read(std::size_t offset) const
    {
        Word word;
        std::memcpy(&word, start_ + offset, sizeof word);
        return word;
    }

    const unsigned char *start_;
};

} // namespace velmox
