#include "pipeline/input/rules/hive_names.h"

namespace velmox {

// There is no registry to ask; who replays a capture has the number from there.
std::uint32_t HiveNames::systemControlSet()
{
    return 1;
}

} // namespace velmox
