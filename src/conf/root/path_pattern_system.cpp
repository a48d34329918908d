#include "conf/root/path_pattern.h"
#include "util/files/directory_listing.h"
#include "util/files/file_system.h"

#include <algorithm>

namespace velmox {

namespace {

/// The level of a path that holds the unit at a position.
struct Level
{
    Level(const Pathname &path, std::size_t position)
        : begin(path.rfind(Pathname::kSeparator, position) + 1),
          end(std::min(path.find(Pathname::kSeparator, position), path.size()))
    {
    }
    std::size_t begin;
    std::size_t end;
};

/// `from` is where the part of the pattern begins that is not a found name.
void expandFrom(const Pathname &pattern, std::size_t from, std::vector<Pathname> &out)
{
    const std::size_t star = pattern.find(u'*', from);
    if (star == Pathname::npos) {
        if (pathKind(pattern) != PathKind::Nothing) {
            out.push_back(pattern);
        }
        return;
    }
    const Level level(pattern, star);
    const WideStr name = pattern.substr(level.begin, level.end - level.begin);
    std::vector<DirectoryEntry> entries;
    listDirectory(Pathname(pattern.substr(0, level.begin)), entries);
    for (const DirectoryEntry &entry : entries) {
        const bool leadsOn = entry.isFolder || level.end == pattern.size();
        if (leadsOn && matchesNamePattern(entry.name, name)) {
            Pathname found(pattern);
            found.replace(level.begin, level.end - level.begin, entry.name);
            expandFrom(found, level.begin + entry.name.size(), out);
        }
    }
}

} // namespace

std::vector<Pathname> expandPathPattern(const Pathname &pattern)
{
    std::vector<Pathname> out;
    expandFrom(pattern, 0, out);
    return out;
}

} // namespace velmox
