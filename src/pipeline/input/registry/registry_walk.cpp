#include "pipeline/input/registry/registry_walk.h"

#include "pipeline/input/registry/native_names.h"
#include "pipeline/input/registry/registry_key_handle.h"
#include "util/system/local_memory.h"

#include <algorithm>

namespace velmox {

namespace {

// No registry has keys deeper than this (Windows, registry element size limits).
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

    bool operator==(const KeyInfo &other) const
    {
        return subKeys == other.subKeys && longestSubKeyName == other.longestSubKeyName &&
               values == other.values && longestValueName == other.longestValueName &&
               longestData == other.longestData && CompareFileTime(&lastWriteTime, &other.lastWriteTime) == 0;
    }
};

bool isSameKey(HKEY a, HKEY b)
{
    const NtQueryObject query = findNtQueryObject();
    WideStr nameOfA;
    WideStr nameOfB;
    return query != nullptr && queryName(query, a, nameOfA) && queryName(query, b, nameOfB) &&
           nameOfA == nameOfB;
}

/// A key that the walk has open, and those above it.
struct OpenKey
{
    HKEY key;
    KeyInfo info;
    const OpenKey *above;
    unsigned level;

    /// Whether the key is one of those above it: a symbolic link has led back up, and any user can make one.
    /// Names are asked for only where all else agrees, as each costs as much as a value.
    bool isRepeated() const
    {
        for (const OpenKey *other = above; other != nullptr; other = other->above) {
            if (info == other->info && isSameKey(key, other->key)) {
                return true;
            }
        }
        return false;
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

std::uint32_t visitKey(const RegistryWalk &walk, HKEY key, std::u16string_view path, const OpenKey *above);

// Returns what came of opening the last sub key.
LSTATUS visitSubKeys(const RegistryWalk &walk, const OpenKey &open, const KeyBuffer &buffer)
{
    LSTATUS status = ERROR_SUCCESS;
    for (DWORD index = 0; index < open.info.subKeys; ++index) {
        DWORD nameLength = buffer.nameRoom();
        RegEnumKeyExW(open.key, index, buffer.name(), &nameLength, nullptr, nullptr, nullptr, nullptr);
        // Where that failed the name may be empty, which would open the key itself over and over.
        const bool hasName = *buffer.name() != L'\0';
        RegistryKeyHandle child;
        status = hasName ? openForReading(open.key, buffer.name(), child) : ERROR_SUCCESS;
        if (child.isValid() &&
            (walk.keyCallback == nullptr ||
             walk.keyCallback(buffer.path(), open.info.lastWriteTime, walk.context) == 1)) {
            visitKey(walk, child.get(), buffer.path(), &open);
        }
        if (*walk.stop != 0) {
            break;
        }
    }
    return status;
}

std::uint32_t visitKey(const RegistryWalk &walk, HKEY key, std::u16string_view path, const OpenKey *above)
{
    OpenKey open = {key, {}, above, above == nullptr ? 0 : above->level + 1};
    if (*walk.stop != 0 || open.level > kDeepestLevel) {
        return ERROR_SUCCESS;
    }
    if (const LSTATUS result = open.info.read(key); result != ERROR_SUCCESS) {
        return static_cast<std::uint32_t>(result);
    }
    if (open.isRepeated()) {
        return ERROR_SUCCESS;
    }
    const KeyBuffer buffer(path, open.info);
    if (!buffer.isValid()) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
    reportValues(walk, key, open.info, buffer);
    return static_cast<std::uint32_t>(visitSubKeys(walk, open, buffer));
}

} // namespace

std::uint32_t RegistryWalk::visit(HKEY key, std::u16string_view path) const
{
    return visitKey(*this, key, path, nullptr);
}

} // namespace velmox
