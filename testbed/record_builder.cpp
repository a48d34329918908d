#include "testbed/record_builder.h"

#include "testbed/driver/trace_wire.h"

#include <cstring>

namespace velmox::testbed {

namespace {

void append(Bytes &out, const void *data, std::size_t size)
{
    const auto *first = static_cast<const unsigned char *>(data);
    out.insert(out.end(), first, first + size);
}

Bytes bytesOf(const void *data, std::size_t size)
{
    const auto *first = static_cast<const unsigned char *>(data);
    return Bytes(first, first + size);
}

VelmoxRecordHeader headerOf(const RecordFields &fields)
{
    VelmoxRecordHeader header = {};
    header.recordClass = fields.recordClass;
    header.reserved = fields.reserved;
    header.operation = fields.operation;
    header.status = fields.status;
    header.pid = fields.pid;
    header.parentPid = fields.parentPid;
    header.dataType = fields.dataType;
    header.timestamp = fields.timestamp;
    header.nameBytes = static_cast<std::uint32_t>(fields.name.size() * sizeof(char16_t));
    header.dataBytes = static_cast<std::uint32_t>(fields.data.size());
    return header;
}

} // namespace

RecordFields processCreated(std::uint32_t pid, std::uint32_t parentPid, std::u16string_view account)
{
    return {.recordClass = VELMOX_CLASS_PROCESS,
            .operation = 1,
            .pid = pid,
            .parentPid = parentPid,
            .dataType = 0,
            .name = std::u16string(account)};
}

RecordFields processExited(std::uint32_t pid, std::uint32_t parentPid)
{
    return {.recordClass = VELMOX_CLASS_PROCESS,
            .operation = 0,
            .pid = pid,
            .parentPid = parentPid,
            .dataType = 0,
            .name = {}};
}

RecordFields imageLoaded(std::uint32_t pid, std::u16string_view devicePath)
{
    return {.recordClass = VELMOX_CLASS_IMAGE,
            .operation = 0,
            .pid = pid,
            .dataType = 0,
            .name = std::u16string(devicePath)};
}

void appendRecord(Bytes &buffer, const RecordFields &fields)
{
    const VelmoxRecordHeader header = headerOf(fields);
    append(buffer, &header, sizeof header);
    append(buffer, fields.name.data(), header.nameBytes);
    buffer.insert(buffer.end(), sizeof(char16_t), 0);
    append(buffer, fields.data.data(), fields.data.size());
}

Bytes recordBytes(const RecordFields &fields)
{
    Bytes bytes;
    appendRecord(bytes, fields);
    return bytes;
}

Bytes recordBuffer(std::span<const RecordFields> records)
{
    Bytes buffer;
    for (const RecordFields &fields : records)
        appendRecord(buffer, fields);
    return buffer;
}

Bytes recordBuffer(std::initializer_list<RecordFields> records)
{
    return recordBuffer(std::span(records.begin(), records.size()));
}

std::size_t countRecords(std::span<const unsigned char> buffer)
{
    std::size_t count = 0;
    while (buffer.size() >= VELMOX_RECORD_FIXED_BYTES) {
        VelmoxRecordHeader header;
        std::memcpy(&header, buffer.data(), sizeof header);
        const std::size_t length =
            VELMOX_RECORD_FIXED_BYTES + std::size_t{header.nameBytes} + header.dataBytes;
        if (length > buffer.size())
            break;
        buffer = buffer.subspan(length);
        ++count;
    }
    return count;
}

Bytes textData(std::u16string_view text)
{
    return bytesOf(text.data(), text.size() * sizeof(char16_t));
}

Bytes stringData(std::u16string_view text)
{
    return textData(std::u16string(text) + u'\0');
}

Bytes multiStringData(std::initializer_list<std::u16string_view> strings)
{
    std::u16string list;
    for (const std::u16string_view text : strings)
        list.append(text).push_back(u'\0');
    list.push_back(u'\0');
    return textData(list);
}

Bytes dwordData(std::uint32_t value)
{
    return bytesOf(&value, sizeof value);
}

Bytes qwordData(std::uint64_t value)
{
    return bytesOf(&value, sizeof value);
}

} // namespace velmox::testbed
