#pragma once

#include "util/files/writable_unicode_stream.h"

#include <cstdio>

namespace velmox {

/// Writes text to a C stream, which must be in binary mode and stays the caller's. The destructor writes what
/// is still buffered; only `flush` tells whether that worked.
class WritableUnicodeFileStar : public WritableUnicodeStream
{
public:
    explicit WritableUnicodeFileStar(std::FILE *file) : file_(file) {}
    ~WritableUnicodeFileStar() override;

    /// False when anything written so far did not reach the C stream, or the C stream could not be flushed.
    bool flush();

private:
    void writeByte(unsigned char byte) override;
    void writeBuffer();

    std::FILE *file_;
    bool failed_ = false;
    unsigned char buffer_[512];
    std::size_t length_ = 0;
};

} // namespace velmox
