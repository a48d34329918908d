#include "util/system/program_version.h"

#include "util/system/windows_api.h"

#include <cstring>

namespace velmox {

namespace {

// A VS_VERSIONINFO: three words and its name, up to the next multiple of four bytes.
constexpr std::size_t kFixedInfoOffset = 40;
constexpr DWORD kFixedInfoSignature = 0xFEEF04BD;

bool readFixedInfo(VS_FIXEDFILEINFO &info)
{
    const HRSRC resource = FindResourceW(nullptr, MAKEINTRESOURCEW(VS_VERSION_INFO), RT_VERSION);
    if (resource == nullptr || SizeofResource(nullptr, resource) < kFixedInfoOffset + sizeof info) {
        return false;
    }
    // Part of the program's image: there is nothing to free.
    const void *bytes = LockResource(LoadResource(nullptr, resource));
    if (bytes == nullptr) {
        return false;
    }
    std::memcpy(&info, static_cast<const unsigned char *>(bytes) + kFixedInfoOffset, sizeof info);
    return info.dwSignature == kFixedInfoSignature;
}

} // namespace

ProgramVersion ProgramVersion::ofThisProgram()
{
    VS_FIXEDFILEINFO info;
    if (!readFixedInfo(info)) {
        return {};
    }
    return {{HIWORD(info.dwFileVersionMS), LOWORD(info.dwFileVersionMS), HIWORD(info.dwFileVersionLS),
             LOWORD(info.dwFileVersionLS)}};
}

Str ProgramVersion::text() const
{
    return Str::fromFormat("%u.%u.%u.%u", parts[0], parts[1], parts[2], parts[3]);
}

} // namespace velmox
