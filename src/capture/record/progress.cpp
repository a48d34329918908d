#include "capture/record/progress.h"

#include "util/text/str.h"

#include <algorithm>
#include <cstdio>
#include <io.h>

namespace velmox {

namespace {

constexpr auto kBetween = std::chrono::milliseconds(250);
constexpr std::size_t kBarWidth = 20;
constexpr double kMegabyte = 1e6;

} // namespace

Progress::Progress(std::uint64_t seconds, std::uint64_t bytes)
    : lastSecond_(seconds), lastByte_(bytes), isTerminal_(_isatty(_fileno(stderr)) != 0)
{
}

std::uint64_t Progress::seconds() const
{
    return static_cast<std::uint64_t>(
        std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - start_).count());
}

void Progress::show(const Figures &figures)
{
    if (isTerminal_ && Clock::now() - shown_ >= kBetween) {
        shown_ = Clock::now();
        write(figures, "");
    }
}

void Progress::end(const Figures &figures)
{
    write(figures, "\n");
}

// Of the end that is nearer.
double Progress::doneShare(const Figures &figures) const
{
    const auto share = [](std::uint64_t done, std::uint64_t all) {
        return all == 0 ? 0.0 : static_cast<double>(done) / static_cast<double>(all);
    };
    return std::min(1.0, std::max(share(seconds(), lastSecond_), share(figures.bytes, lastByte_)));
}

void Progress::write(const Figures &figures, const char *lineEnd)
{
    Str line;
    if (isTerminal_) {
        line.push_back('\r');
    }
    if (isTerminal_ && (lastSecond_ != 0 || lastByte_ != 0)) {
        const auto done = static_cast<std::size_t>(doneShare(figures) * kBarWidth);
        line << '[' << Str(done, '#') << Str(kBarWidth - done, '.') << "] ";
    }
    line << seconds() << " s, " << figures.records << " records, ";
    line.appendFormat("%.1f MB, ", static_cast<double>(figures.bytes) / kMegabyte);
    line << figures.lostReads << " reads lost" << lineEnd;
    std::fputs(line.c_str(), stderr);
    std::fflush(stderr);
}

} // namespace velmox
