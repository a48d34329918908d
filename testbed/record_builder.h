#pragma once

#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace velmox::testbed {

using Bytes = std::vector<unsigned char>;

/// The fields of one driver record, to be set by name: `RecordFields{.operation = 15, .name = u"..."}`.
///
/// As it stands it is a value set to an empty string in a machine key. Sizes follow from `name` and `data`.
struct RecordFields
{
    std::uint32_t recordClass = 1;
    std::uint32_t reserved = 0;
    std::uint32_t operation = 16; // value set, after the event
    std::uint32_t status = 0;
    std::uint32_t pid = 4096;
    std::uint32_t parentPid = 0;
    std::uint32_t dataType = 1;
    std::uint64_t timestamp = 132'223'104'000'000'000; // 2020-01-01 00:00 UTC, in 100 ns since 1601
    std::u16string name = u"\\REGISTRY\\MACHINE\\SOFTWARE\\Velmox\\Test";
    Bytes data = {};
};

RecordFields processCreated(std::uint32_t pid, std::uint32_t parentPid, std::u16string_view account);
RecordFields processExited(std::uint32_t pid, std::uint32_t parentPid);
RecordFields imageLoaded(std::uint32_t pid, std::u16string_view devicePath);

/// The record as the driver lays it out.
Bytes recordBytes(const RecordFields &fields);
void appendRecord(Bytes &buffer, const RecordFields &fields);

/// Records back to back, as one read returns them.
Bytes recordBuffer(std::span<const RecordFields> records);
Bytes recordBuffer(std::initializer_list<RecordFields> records);

/// Number of whole records in a buffer that holds nothing else.
std::size_t countRecords(std::span<const unsigned char> buffer);

/// Value data in the registry's own form. `stringData` adds the terminator, `textData` does not;
/// `multiStringData` ends each string and the list.
Bytes textData(std::u16string_view text);
Bytes stringData(std::u16string_view text);
Bytes multiStringData(std::initializer_list<std::u16string_view> strings);
Bytes dwordData(std::uint32_t value);
Bytes qwordData(std::uint64_t value);

} // namespace velmox::testbed
