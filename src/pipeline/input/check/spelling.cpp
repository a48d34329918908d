#include "pipeline/input/check/spelling.h"

#include <algorithm>
#include <vector>

namespace velmox {

namespace {

constexpr std::size_t kShortWord = 4;

} // namespace

std::size_t letterChanges(const Str &from, const Str &to)
{
    const Str a = from.lowered();
    const Str b = to.lowered();
    // Distances of the beginnings of `a` from those of `b`: a row for each, of which two are looked back at.
    std::vector<std::vector<std::size_t>> rows(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
    for (std::size_t i = 0; i <= a.size(); ++i) {
        for (std::size_t j = 0; j <= b.size(); ++j) {
            if (i == 0 || j == 0) {
                rows[i][j] = i + j;
                continue;
            }
            const std::size_t changed = rows[i - 1][j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1);
            rows[i][j] = std::min({changed, rows[i - 1][j] + 1, rows[i][j - 1] + 1});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) {
                rows[i][j] = std::min(rows[i][j], rows[i - 2][j - 2] + 1);
            }
        }
    }
    return rows[a.size()][b.size()];
}

Str nearestName(const Str &word, const std::set<Str> &names)
{
    Str nearest;
    std::size_t fewest = word.size() <= kShortWord ? 2 : 3;
    for (const Str &name : names) {
        const std::size_t changes = letterChanges(word, name);
        if (changes < fewest) {
            fewest = changes;
            nearest = name;
        }
    }
    return nearest;
}

} // namespace velmox
