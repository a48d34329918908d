#include "pipeline/input/registry/win_registry.h"

#include "pipeline/input/diagnostics/diagnostics.h"
#include "pipeline/input/registry/reg_key.h"
#include "pipeline/input/registry/registry_roots.h"
#include "util/system/owned_handle.h"

#include <algorithm>

namespace velmox {

namespace {

// Of a sub key's name with its NUL; longer ones are left out of lists. (A name has 255 units at most.)
constexpr DWORD kNameUnits = 255;

// No registry has keys deeper than this (Windows, registry element size limits). It bounds the recursion.
constexpr unsigned kDeepestLevel = 512;

/// What one call tells of a key: the sizes of the room that its names and values need, and what tells it
/// from most other keys.
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

    /// Equal for the same key; whether equal ones are the same key has to be asked.
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
    // Where the system does not say, the limit of depth ends the walk.
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
    /// The limit of depth alone would let one link repeat a tree 512 times, and two links in one key repeat
    /// it without end in sight. Names are asked for only where all else agrees, as each costs as much as a
    /// value.
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
    /// At an even address, as 16-bit text must be.
    std::size_t pathOffset() const { return (std::size_t{dataRoom_} + 1) / 2 * 2; }

    DWORD nameRoom_;
    DWORD dataRoom_;
    std::size_t keyUnits_;
    LocalMemory memory_;
};

/// One walk: whom it calls, and what ends it.
struct RegistryWalk
{
    WinRegistry::KeyCallback keyCallback;
    WinRegistry::ValueCallback valueCallback;
    void *context;
    const volatile LONG *stop;
};

void reportValues(const RegistryWalk &walk, HKEY key, const KeyInfo &info, const KeyBuffer &buffer)
{
    // The flag is not looked at in here: the values of one key are told all or not at all.
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

// Reports the values of an open key, then visits its sub keys; `path` is the key's, below the root. Returns
// what kept the key from being read, or the failure to open its last sub key.
LSTATUS visitKey(const RegistryWalk &walk, HKEY key, std::u16string_view path, const OpenKey *above);

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
        status = hasName ? openKey(open.key, buffer.name(), KEY_READ, child) : ERROR_SUCCESS;
        // The buffer's path is that of the sub key now, and stays so until the next index.
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

LSTATUS visitKey(const RegistryWalk &walk, HKEY key, std::u16string_view path, const OpenKey *above)
{
    OpenKey open = {key, {}, above, above == nullptr ? 0 : above->level + 1};
    if (*walk.stop != 0 || open.level > kDeepestLevel) {
        return ERROR_SUCCESS;
    }
    if (const LSTATUS result = open.info.read(key); result != ERROR_SUCCESS) {
        return result;
    }
    if (open.isRepeated()) {
        return ERROR_SUCCESS;
    }
    // One block for all that is read of the key, so that a walk over many keys allocates once for each.
    const KeyBuffer buffer(path, open.info);
    if (!buffer.isValid()) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
    // Values that come or go meanwhile are missed or skipped: the numbers are those of the moment of the
    // query.
    reportValues(walk, key, open.info, buffer);
    return visitSubKeys(walk, open, buffer);
}

} // namespace

WinRegistry::WinRegistry()
{
    for (const RegistryRoot &root : kRegistryRoots) {
        const auto key = reinterpret_cast<HKEY>(root.key());
        roots_[Str::fromUtf16(root.longName)] = key;
        roots_[Str::fromUtf16(root.shortName)] = key;
    }
}

std::uint32_t WinRegistry::walk(HKEY rootKey, const char16_t *subKeyPath, KeyCallback keyCallback,
                                ValueCallback valueCallback, void *context, const volatile LONG *stop) const
{
    if (subKeyPath == nullptr) {
        return ERROR_INVALID_PARAMETER;
    }
    while (*subKeyPath == u'\\') {
        ++subKeyPath;
    }
    RegistryKeyHandle key;
    LSTATUS result = openKey(rootKey, asWide(subKeyPath), KEY_READ, key);
    if (result == ERROR_SUCCESS) {
        result = visitKey({keyCallback, valueCallback, context, stop}, key.get(), subKeyPath, nullptr);
    }
    return static_cast<std::uint32_t>(result);
}

bool WinRegistry::getSubKeys(HKEY key, WideStrVector &out) const
{
    for (DWORD index = 0;; ++index) {
        wchar_t name[kNameUnits];
        DWORD length = kNameUnits;
        const LSTATUS result = RegEnumKeyExW(key, index, name, &length, nullptr, nullptr, nullptr, nullptr);
        if (result == ERROR_NO_MORE_ITEMS) {
            return true;
        }
        if (result == ERROR_SUCCESS) {
            out.emplace_back(asUtf16(name), length);
            continue;
        }
        // The registry's calls return their code; the message takes its text from the last error.
        SetLastError(static_cast<DWORD>(result));
        const bool isTooLong = result == ERROR_MORE_DATA;
        registryLog.log(isTooLong ? LogLevel::Debug : LogLevel::Error,
                        "%s: Enumerating registry key failed at key '%d': '%m'", "WinRegistry::getSubKeys",
                        static_cast<int>(index));
        if (!isTooLong) {
            return false;
        }
    }
}

bool WinRegistry::listRootNames(StrVector &out) const
{
    for (const RegistryRoot &root : kRegistryRoots) {
        out.push_back(Str::fromUtf16(root.longName));
    }
    return true;
}

HKEY WinRegistry::rootKey(const Str &name) const
{
    const auto root = roots_.find(name);
    return root != roots_.end() ? root->second : nullptr;
}

} // namespace velmox
