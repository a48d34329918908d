#pragma once

#include "util/files/readable_unicode_stream.h"
#include "util/files/writable_unicode_stream.h"

#include <string>

namespace velmox::testing {

class MemoryReader : public ReadableUnicodeStream
{
public:
    explicit MemoryReader(std::string bytes) : bytes_(std::move(bytes)) {}

private:
    int readByte() override
    {
        return position_ < bytes_.size() ? static_cast<unsigned char>(bytes_[position_++]) : -1;
    }

    std::string bytes_;
    std::size_t position_ = 0;
};

class MemoryWriter : public WritableUnicodeStream
{
public:
    explicit MemoryWriter(TextEncodingWord encoding = kDefaultEncodingWord) { setEncoding(encoding); }
    using WritableUnicodeStream::finishCharacter;
    std::string bytes;

private:
    void writeByte(unsigned char byte) override { bytes.push_back(static_cast<char>(byte)); }
};

} // namespace velmox::testing
