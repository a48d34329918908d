#pragma once

#include "util/files/readable_unicode_stream.h"

#include <cstdio>

namespace velmox {

/// Reads text from a C stream, which must be in binary mode for line ends to be seen, and stays the caller's.
class ReadableUnicodeFileStar : public ReadableUnicodeStream
{
public:
    explicit ReadableUnicodeFileStar(std::FILE *file) : file_(file) {}

private:
    int readByte() override;

    std::FILE *file_;
    unsigned char buffer_[512];
    std::size_t position_ = 0;
    std::size_t length_ = 0;
};

} // namespace velmox
