#include "pipeline/input/registry_operations.h"

#include "util/str.h"

#include <array>
#include <iterator>

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

constexpr std::array kDataTypes{
    "REG_NONE",
    "REG_SZ",
    "REG_EXPAND_SZ",
    "REG_BINARY",
    "REG_DWORD",
    "REG_DWORD_BIG_ENDIAN",
    "REG_LINK",
    "REG_MULTI_SZ",
    "REG_RESOURCE_LIST",
    "REG_FULL_RESOURCE_DESCRIPTOR",
    "REG_RESOURCE_REQUIREMENTS_LIST",
    "REG_QWORD",
};

// RegNtPostQueryKeySecurity and RegNtPostSetKeySecurity, whose data is a security descriptor whatever the
// type word says.
constexpr std::uint32_t kQuerySecurity = 37;
constexpr std::uint32_t kSetSecurity = 39;

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

const char *dataTypeName(std::uint32_t operation, std::uint32_t dataType)
{
    if (operation == kQuerySecurity || operation == kSetSecurity) {
        return "REG_SD";
    }
    return dataType < kDataTypes.size() ? kDataTypes[dataType] : "UNKNOWN";
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
