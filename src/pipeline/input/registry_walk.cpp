#include "pipeline/input/registry_walk.h"

#include "pipeline/input/registry_key_handle.h"
#include "util/local_memory.h"

#include <algorithm>

namespace velmox {

namespace {

// No registry has keys deeper than this (Windows, registry element size limits), but a symbolic link that
// leads back up would give the walk no end.
constexpr unsigned kDeepestLevel = 512;

struct KeyInfo
{
    DWORD subKeys = 0;
    DWORD longestSubKeyName = 0;
    DWORD values = 0;
    DWORD longestValueName = 0;
    DWORD longestData = 0;
    FILETIME lastWriteTime = {};

    LSTATUS read(HKEY key)
    {
        return RegQueryInfoKeyA(key, nullptr, nullptr, nullptr, &subKeys, &longestSubKeyName, nullptr,
                                &values, &longestValueName, &longestData, nullptr, &lastWriteTime);
    }
};

/// Room for what is read of one key: a value's data, and the path of a value or sub key, whose name is read
/// in place behind the key's own path and a backslash.
class KeyBuffer
{
public:
    KeyBuffer(std::u16string_view keyPath, const KeyInfo &info)
        : nameRoom_(std::max(info.longestSubKeyName, info.longestValueName) + 1), dataRoom_(info.longestData),
          keyUnits_(keyPath.size())
    {
        // One unit more than the registry hears of, so that whatever it leaves there ends in a NUL.
        const std::size_t pathUnits = keyUnits_ + 1 + nameRoom_ + 1;
        memory_.reset(LocalAlloc(LPTR, pathOffset() + pathUnits * sizeof(char16_t)));
        if (memory_.isValid()) {
            std::copy(keyPath.begin(), keyPath.end(), path());
            path()[keyUnits_] = u'\\';
        }
    }

    bool isValid() const { return memory_.isValid(); }
    /// Comes first, so that it is aligned for numbers of any width.
    BYTE *data() const { return static_cast<BYTE *>(memory_.get()); }
    DWORD dataRoom() const { return dataRoom_; }
    char16_t *path() const { return reinterpret_cast<char16_t *>(data() + pathOffset()); }
    wchar_t *name() const { return reinterpret_cast<wchar_t *>(path() + keyUnits_ + 1); }
    DWORD nameRoom() const { return nameRoom_; }

private:
    std::size_t pathOffset() const { return (std::size_t{dataRoom_} + 1) / 2 * 2; }

    DWORD nameRoom_;
    DWORD dataRoom_;
    std::size_t keyUnits_;
    LocalMemory memory_;
};

void reportValues(const RegistryWalk &walk, HKEY key, const KeyInfo &info, const KeyBuffer &buffer)
{
    for (DWORD index = 0; index < info.values; ++index) {
        DWORD nameLength = buffer.nameRoom();
        DWORD dataLength = buffer.dataRoom();
        DWORD type = 0;
        if (RegEnumValueW(key, index, buffer.name(), &nameLength, nullptr, &type, buffer.data(),
                          &dataLength) == ERROR_SUCCESS) {
            walk.valueCallback(buffer.path(), asUtf16(buffer.name()), nameLength, type, buffer.data(),
                               dataLength, info.lastWriteTime, walk.context);
        }
    }
}

// Returns what came of opening the last sub key.
LSTATUS visitSubKeys(const RegistryWalk &walk, HKEY key, const KeyInfo &info, const KeyBuffer &buffer,
                     unsigned level)
{
    LSTATUS status = ERROR_SUCCESS;
    for (DWORD index = 0; index < info.subKeys; ++index) {
        DWORD nameLength = buffer.nameRoom();
        RegEnumKeyExW(key, index, buffer.name(), &nameLength, nullptr, nullptr, nullptr, nullptr);
        // Where that failed there may be no name, by which the key itself would be opened over and over.
        const bool hasName = *buffer.name() != L'\0';
        RegistryKeyHandle child;
        status = hasName ? openForReading(key, buffer.name(), child) : ERROR_SUCCESS;
        if (child.isValid() && (walk.keyCallback == nullptr ||
                                walk.keyCallback(buffer.path(), info.lastWriteTime, walk.context) == 1)) {
            walk.visit(child.get(), buffer.path(), level + 1);
        }
        if (*walk.stop != 0) {
            break;
        }
    }
    return status;
}

} // namespace

std::uint32_t RegistryWalk::visit(HKEY key, std::u16string_view path, unsigned level) const
{
    if (*stop != 0 || level > kDeepestLevel) {
        return ERROR_SUCCESS;
    }
    KeyInfo info;
    if (const LSTATUS result = info.read(key); result != ERROR_SUCCESS) {
        return static_cast<std::uint32_t>(result);
    }
    const KeyBuffer buffer(path, info);
    if (!buffer.isValid()) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
    reportValues(*this, key, info, buffer);
    return static_cast<std::uint32_t>(visitSubKeys(*this, key, info, buffer, level));
}

} // namespace velmox
