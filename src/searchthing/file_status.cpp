#include "searchthing/file_status.h"

#include "util/time/file_time.h"

namespace velmox {

FileStatus FileStatus::of(const Pathname &path)
{
    WIN32_FILE_ATTRIBUTE_DATA data;
    if (!GetFileAttributesExW(asWide(path), GetFileExInfoStandard, &data) ||
        (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
        return {};
    }
    return {true, std::uint64_t{data.nFileSizeHigh} << 32 | data.nFileSizeLow,
            timevalOf(data.ftLastWriteTime)};
}

Str FileStatus::toStr() const
{
    if (!exists) {
        return "no file";
    }
    return Str("modtime ") << modtimeText() << ", " << static_cast<unsigned long long>(size) << " bytes";
}

Str FileStatus::modtimeText() const
{
    Str text;
    modtime.toUnixStr(text, 3);
    return text;
}

} // namespace velmox
