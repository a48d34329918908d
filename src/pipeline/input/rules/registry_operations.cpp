#include "pipeline/input/rules/registry_operations.h"

#include "util/text/str.h"

#include <array>

namespace velmox {

namespace {

constexpr RegistryOperation kUnknown{"UNKNOWN", "unknown"};
constexpr RegistryOperation kDelete{"DeleteKey", "delete"};
constexpr RegistryOperation kSet{"SetValue", "set"};
constexpr RegistryOperation kRename{"RenameKey", "rename"};
constexpr RegistryOperation kQuery{"QueryKey", "query"};
constexpr RegistryOperation kCreate{"CreateKey", "create"};
constexpr RegistryOperation kOpen{"OpenKey", "open"};
constexpr RegistryOperation kClose{"CloseKey", "close"};

// By REG_NOTIFY_CLASS. Deleting a value (2, 17) counts as a deletion and changing a key's information (3) as
// a setting; readers of the stream rely on this grouping.
constexpr std::array<RegistryOperation, 30> kOperations{
    kDelete,  kSet,     kDelete,  kSet,   kRename,  kQuery,  kQuery,  kQuery,  kQuery,   kQuery,
    kCreate,  kCreate,  kOpen,    kOpen,  kClose,   kDelete, kSet,    kDelete, kUnknown, kRename,
    kUnknown, kUnknown, kUnknown, kQuery, kUnknown, kClose,  kCreate, kCreate, kOpen,    kOpen,
};

/// The bits are the driver's. Several operations have one word, and so one bit.
struct OperationMask
{
    const char *word;
    std::uint32_t mask;
};
constexpr OperationMask kMasks[] = {
    {"create", 1}, {"query", 2}, {"set", 4}, {"delete", 8}, {"open", 16}, {"close", 32}, {"rename", 64},
};

} // namespace

RegistryOperation registryOperation(std::uint32_t code)
{
    return code < kOperations.size() ? kOperations[code] : kUnknown;
}

std::map<Str, std::uint32_t> registryOperationMasks()
{
    std::map<Str, std::uint32_t> masks;
    for (const OperationMask &row : kMasks) {
        masks.emplace(row.word, row.mask);
    }
    return masks;
}

} // namespace velmox
