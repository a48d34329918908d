#include "companion/stream/registry_path.h"

#include <algorithm>

namespace velmox {

namespace {

struct Root
{
    std::string_view path;
    std::string_view hive;
};

// The first that fits counts, so what lies below another stands in front of it.
constexpr Root kRoots[] = {
    {"HKLM", "HKLM"},
    {"HKCU", "HKCU"},
    {"HKU", "HKU"},
    {"HKCC", "HKCC"},
    {"\\REGISTRY\\MACHINE\\SYSTEM\\CURRENTCONTROLSET\\HARDWARE PROFILES\\CURRENT", "HKCC"},
    {"\\REGISTRY\\MACHINE", "HKLM"},
    {"\\REGISTRY\\USER", "HKU"},
};

constexpr char upper(char c)
{
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

constexpr char lower(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

/// Whether the path is that root or lies below it; the roots are in upper case.
bool isBelow(std::string_view path, std::string_view root)
{
    return path.size() >= root.size() &&
           std::equal(root.begin(), root.end(), path.begin(), [](char a, char b) { return a == upper(b); }) &&
           (path.size() == root.size() || path[root.size()] == '\\');
}

} // namespace

RegistryPath splitRegistryPath(std::string_view path, bool hasValue)
{
    RegistryPath parts;
    parts.key = path;
    const auto *const root =
        std::ranges::find_if(kRoots, [path](const Root &candidate) { return isBelow(path, candidate.path); });
    if (root != std::end(kRoots)) {
        parts.hive = root->hive;
        parts.key = path.substr(std::min(root->path.size() + 1, path.size()));
    }
    if (hasValue) {
        const std::size_t end = parts.key.rfind('\\');
        parts.value = parts.key.substr(end == std::string_view::npos ? 0 : end + 1);
        parts.key = parts.key.substr(0, end == std::string_view::npos ? 0 : end);
    }
    return parts;
}

std::string comparableRegistryPath(std::string_view path)
{
    const RegistryPath parts = splitRegistryPath(path, false);
    std::string comparable(parts.hive);
    comparable += '\\';
    comparable += parts.key;
    std::ranges::transform(comparable, comparable.begin(), lower);
    return comparable;
}

std::string_view lastComponent(std::string_view path)
{
    const std::size_t end = path.find_last_of("\\/");
    return path.substr(end == std::string_view::npos ? 0 : end + 1);
}

} // namespace velmox
