#pragma once

#include "util/text/str.h"

#include <cstdint>

namespace velmox {

/// A test on items of one kind, to stand in a `SmartFilterList`.
template <class T>
class AbstractFilter
{
public:
    explicit AbstractFilter(const Str &filterName) : name(filterName) {}
    AbstractFilter(const AbstractFilter &) = delete;
    AbstractFilter &operator=(const AbstractFilter &) = delete;
    virtual ~AbstractFilter() = default;

    virtual bool matches(const T &item) = 0;

    /// Unique inside a list.
    const Str name;
    /// How often `matches` gave true, and how often it was called. Written by who calls it, a list or a
    /// reader of stanzas.
    std::uint64_t hits = 0;
    std::uint64_t checks = 0;
};

} // namespace velmox
