#include "util/files/writable_unicode_file_star.h"

namespace velmox {

WritableUnicodeFileStar::~WritableUnicodeFileStar()
{
    finishCharacter();
    writeBuffer();
}

bool WritableUnicodeFileStar::flush()
{
    writeBuffer();
    return std::fflush(file_) == 0 && !failed_;
}

void WritableUnicodeFileStar::writeByte(unsigned char byte)
{
    buffer_[length_++] = byte;
    if (length_ == sizeof buffer_) {
        writeBuffer();
    }
}

void WritableUnicodeFileStar::writeBuffer()
{
    if (length_ != 0 && std::fwrite(buffer_, 1, length_, file_) != length_) {
        failed_ = true;
    }
    length_ = 0;
}

} // namespace velmox
