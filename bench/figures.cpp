#include "bench/figures.h"

#include <algorithm>
#include <cstdio>

namespace velmox::bench {

namespace {

/// On a shared machine some rounds are slow; the median does not see them.
double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    const std::size_t middle = values.size() / 2;
    return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

} // namespace

void Figure::add(double ratio, double absolute)
{
    ratios_.push_back(ratio);
    absolutes_.push_back(absolute);
    std::fprintf(stderr, "%s: %.2f (%.3g %s)\n", what_.c_str(), ratio, absolute, unit_.c_str());
}

Str Figure::limit(double value) const
{
    if (value == 0) {
        return {};
    }
    return Str::fromFormat(goal_.atMost ? "%g at most" : "%g", value);
}

Str Figure::row() const
{
    const auto [low, high] = std::minmax_element(ratios_.begin(), ratios_.end());
    return Str::fromFormat("| %s | %s | %.2f | %.2f to %.2f | %s | %s | %.3g %s |", what_.c_str(),
                           reference_.c_str(), median(ratios_), *low, *high, limit(goal_.must).c_str(),
                           limit(goal_.aim).c_str(), median(absolutes_), unit_.c_str());
}

void printTable(const Figures &figures)
{
    std::puts("| what | reference | median | spread | must | aim | here |\n|---|---|---|---|---|---|---|");
    for (const Figure &figure : figures) {
        std::puts(figure.row().c_str());
    }
}

} // namespace velmox::bench
