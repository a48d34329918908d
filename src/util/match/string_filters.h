#pragma once

#include "util/match/regex.h"
#include "util/match/smart_filter_list.h"

namespace velmox {

using StringFilter = AbstractFilter<Str>;

/// Texts in which a pattern is found anywhere. An empty pattern matches nothing.
class RegexStringFilter : public StringFilter
{
public:
    /// Throws RegexException.
    RegexStringFilter(const Str &name, const Str &pattern);
    bool matches(const Str &text) override;

private:
    Regex regex_;
};

/// Texts that begin with a prefix; the comparison ends at a NUL.
class StringPrefixFilter : public StringFilter
{
public:
    StringPrefixFilter(const Str &name, const Str &prefix);
    bool matches(const Str &text) override;

private:
    Str prefix_;
};

/// Texts in which one of several patterns is found, tried at first in their given order.
class RegexFilterList : public SmartFilterList<Str>
{
public:
    /// Names the filters `pattern-0`, `pattern-1` and so on; one that there is no memory for is left out.
    /// Throws RegexException.
    explicit RegexFilterList(const StrVector &patterns);
};

} // namespace velmox
