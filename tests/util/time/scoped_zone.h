#pragma once

#include <cstdlib>
#include <ctime>
#include <string>

namespace velmox::test {

/// Makes a zone the process's local one for the life of the object, in the form that every C run-time library
/// reads: "EST5" is five hours behind UTC. Zones with daylight saving time are for native runs: Wine's
/// library takes the rules of the first zone that it meets.
class ScopedZone
{
public:
    explicit ScopedZone(const char *zone) : before_(std::getenv("TZ") ? std::getenv("TZ") : "") { set(zone); }
    ~ScopedZone() { set(before_.c_str()); }
    ScopedZone(const ScopedZone &) = delete;
    ScopedZone &operator=(const ScopedZone &) = delete;

private:
    static void set(const char *zone)
    {
#ifdef _WIN32
        _putenv_s("TZ", zone);
#else
        *zone == '\0' ? unsetenv("TZ") : setenv("TZ", zone, 1);
#endif
        tzset();
    }

    const std::string before_;
};

} // namespace velmox::test
