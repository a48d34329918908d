#include "util/files/readable_unicode_file_star.h"

namespace velmox {

int ReadableUnicodeFileStar::readByte()
{
    if (position_ == length_) {
        position_ = 0;
        length_ = std::fread(buffer_, 1, sizeof buffer_, file_);
        if (length_ == 0) {
            return -1;
        }
    }
    return buffer_[position_++];
}

} // namespace velmox
