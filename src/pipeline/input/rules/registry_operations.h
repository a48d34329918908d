#pragma once

#include <cstdint>
#include <map>

namespace velmox {

class Str;

/// How a registry operation is called: in the event's text, and in the filters.
struct RegistryOperation
{
    const char *name;
    const char *word;
};

/// Names of a kernel notification code (REG_NOTIFY_CLASS). Codes without a name are "UNKNOWN", and "unknown"
/// to the filters, which see lower case alone.
RegistryOperation registryOperation(std::uint32_t code);

/// The filter words and the driver's mask bit for each.
std::map<Str, std::uint32_t> registryOperationMasks();

} // namespace velmox
