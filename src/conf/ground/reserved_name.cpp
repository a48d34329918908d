#include "conf/ground/reserved_name.h"

#include "util/text/str.h"

#include <algorithm>
#include <iterator>

namespace velmox {

namespace {

constexpr const char *kDevices[] = {"con", "prn", "aux", "nul", "conin$", "conout$"};
/// Those that a port's number follows.
constexpr const char *kPorts[] = {"com", "lpt"};
/// The digits of ports; the system counts the superscript ones of Latin-1 as digits too.
constexpr const char *kPortNumbers[] = {"1", "2", "3", "4", "5", "6", "7", "8", "9", "¹", "²", "³"};

bool isPort(std::string_view name)
{
    constexpr std::size_t kLength = 3;
    const auto startsName = [name](const char *port) { return name.starts_with(port); };
    const auto endsName = [name](const char *number) { return name.substr(kLength) == number; };
    return std::any_of(std::begin(kPorts), std::end(kPorts), startsName) &&
           std::any_of(std::begin(kPortNumbers), std::end(kPortNumbers), endsName);
}

} // namespace

bool isReservedName(std::string_view name)
{
    if (name.ends_with('.') || name.ends_with(' ')) {
        return true;
    }
    const Str base = Str(name.substr(0, name.find('.'))).trimmed(CharSet(" "), false, true).lowered();
    const auto isBase = [&base](const char *device) { return base == device; };
    return std::any_of(std::begin(kDevices), std::end(kDevices), isBase) || isPort(base);
}

} // namespace velmox
