#include "util/crash/cpu_identification.h"

#include "util/crash/crash_sink.h"
#include "util/system/windows_api.h"

#include <cpuid.h>
#include <cstring>

namespace velmox {

namespace {

struct Registers
{
    unsigned eax = 0;
    unsigned ebx = 0;
    unsigned ecx = 0;
    unsigned edx = 0;

    explicit Registers(unsigned leaf) { __cpuid(leaf, eax, ebx, ecx, edx); }
};

struct Text
{
    char bytes[49] = {};
    std::size_t length = 0;

    void append(unsigned four)
    {
        std::memcpy(bytes + length, &four, sizeof(four));
        length += sizeof(four);
    }
};

Text vendor()
{
    const Registers leaf(0);
    Text text;
    text.append(leaf.ebx);
    text.append(leaf.edx);
    text.append(leaf.ecx);
    return text;
}

Text brand()
{
    constexpr unsigned kFirst = 0x80000002;
    Text text;
    if (Registers(0x80000000).eax < kFirst + 2) {
        return text;
    }
    for (unsigned leaf = kFirst; leaf <= kFirst + 2; ++leaf) {
        const Registers part(leaf);
        for (const unsigned four : {part.eax, part.ebx, part.ecx, part.edx}) {
            text.append(four);
        }
    }
    return text;
}

/// Family and model with their extensions, as the makers define them for leaf 1.
unsigned family(unsigned signature)
{
    const unsigned base = signature >> 8 & 15;
    return base == 15 ? base + (signature >> 20 & 255) : base;
}

unsigned model(unsigned signature)
{
    const unsigned base = signature >> 8 & 15;
    const unsigned low = signature >> 4 & 15;
    return base == 6 || base == 15 ? (signature >> 16 & 15) << 4 | low : low;
}

} // namespace

void writeCpuIdentification(CrashSink &sink)
{
    SYSTEM_INFO system;
    GetNativeSystemInfo(&system);
    const unsigned signature = Registers(1).eax;
    sink.format(" CPU: %s, %s, family %u, model %u, stepping %u, %lu processors\r\n", vendor().bytes,
                brand().bytes, family(signature), model(signature), signature & 15,
                system.dwNumberOfProcessors);
}

} // namespace velmox
