// What a log call costs: below its threshold, and written to a file against the same bytes by bare WriteFile
// calls. Quote the ratios of one run; the times are this machine's of this moment.
#include "util/files/file_descriptor.h"
#include "util/files/file_system.h"
#include "util/log/logger.h"
#include "util/system/windows_api.h"

#include <algorithm>
#include <chrono>
#include <cstdio>

namespace velmox {
namespace {

constexpr int kRounds = 5;

/// The best of some rounds, in nanoseconds a call.
template <class Call>
double nanosecondsPerCall(int calls, Call call)
{
    double best = 1e18;
    for (int round = 0; round < kRounds; ++round) {
        const auto start = std::chrono::steady_clock::now();
        for (int index = 0; index < calls; ++index) {
            call(index);
        }
        const std::chrono::duration<double, std::nano> took = std::chrono::steady_clock::now() - start;
        best = std::min(best, took.count() / calls);
    }
    return best;
}

Pathname scratchFile(const char *name)
{
    wchar_t folder[MAX_PATH + 1];
    const DWORD length = GetTempPathW(MAX_PATH + 1, folder);
    Pathname path(asUtf16(folder), length);
    path.append(std::string_view(name));
    removeFile(path);
    return path;
}

bool configure(const Pathname &config, const Pathname &log)
{
    FileDescriptor file;
    Str text;
    text << "rootCategory=INFO,F\nappender.F.fileName=" << log.toStr()
         << "\nappender.F.layout.ConversionPattern=%d %-5p %c - %m%n\n";
    if (!file.openWrite(config, FilePermissions::Private) || file.write(text.data(), text.size()) < 0) {
        return false;
    }
    file.close();
    return Logger::loadConfig(config, nullptr, {}, true);
}

int run()
{
    const Pathname config = scratchFile("velmox-log-bench.cfg");
    const Pathname log = scratchFile("velmox-log-bench.log");
    const Pathname bare = scratchFile("velmox-log-bench.raw");
    FileDescriptor raw;
    if (!configure(config, log) || !raw.openAppend(bare, FilePermissions::Private)) {
        std::fprintf(stderr, "log_bench: no files in the folder for temporary ones\n");
        return 1;
    }
    Logger logger("Bench");
    constexpr int kQuiet = 20'000'000;
    constexpr int kWritten = 100'000;
    const double off =
        nanosecondsPerCall(kQuiet, [&](int index) { logger.debug("value %d of %s", index, "text"); });
    const double offStream =
        nanosecondsPerCall(kQuiet, [&](int index) { logger.debug() << "value " << index; });
    const double on =
        nanosecondsPerCall(kWritten, [&](int index) { logger.info("value %6d of %s", index, "text"); });
    const Str line = "2026-01-01 00:00:00,000 INFO  Bench - value 123456 of text\r\n";
    const double written = nanosecondsPerCall(kWritten, [&](int) { raw.write(line.data(), line.size()); });
    std::printf("below the threshold      %8.2f ns\n"
                "stream below it          %8.2f ns\n"
                "line written             %8.0f ns\n"
                "bare write of its bytes  %8.0f ns, ratio %.2f\n",
                off, offStream, on, written, on / written);
    raw.close();
    for (const Pathname &path : {config, log, bare}) {
        removeFile(path);
    }
    return 0;
}

} // namespace
} // namespace velmox

int main()
{
    return velmox::run();
}
