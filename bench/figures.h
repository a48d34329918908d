#pragma once

#include "util/text/str.h"

#include <vector>

namespace velmox::bench {

/// What a figure has to come to, and where it is meant to go; zeros for one that has no goal.
struct Goal
{
    double must = 0;
    double aim = 0;
    bool atMost = false;
};

/// One figure of the table: a ratio to a reference that was measured in the same round, or an absolute one
/// whose reference is empty. Its value is the median over the rounds.
class Figure
{
public:
    /// `unit` is that of the absolute values, which stand beside the ratios and mean nothing elsewhere.
    Figure(Str what, Str reference, Goal goal, Str unit)
        : what_(std::move(what)), reference_(std::move(reference)), goal_(goal), unit_(std::move(unit))
    {
    }

    /// Takes one round's result and tells it on standard error.
    void add(double ratio, double absolute);

    /// A row of a Markdown table under the head that `printTable` writes.
    Str row() const;

private:
    Str limit(double value) const;

    Str what_;
    Str reference_;
    Goal goal_;
    Str unit_;
    std::vector<double> ratios_;
    std::vector<double> absolutes_;
};

using Figures = std::vector<Figure>;

/// Writes the figures to standard output.
void printTable(const Figures &figures);

} // namespace velmox::bench
