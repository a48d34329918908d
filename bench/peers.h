#pragma once

#include "bench/figures.h"

#include <chrono>

namespace velmox::bench {

/// The parser of XML against expat and the push parser of libxml2, all counting what they are called with.
Figures measureXml(unsigned rounds);

/// A line of the log against spdlog's of the same length, both into a file.
Figures measureLog(unsigned rounds);

/// Verdicts of a group of 20 stanzas against a loop over the same patterns in PCRE.
Figures measureFilters(unsigned rounds);

template <class Work>
double secondsOf(Work work)
{
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

} // namespace velmox::bench
