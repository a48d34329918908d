#include "pipeline/input/explain/written_path.h"

#include "pipeline/input/registry/registry_roots.h"

namespace velmox {

namespace {

constexpr std::string_view kKernelRoot = "\\REGISTRY\\";
// What the address bar of an editor and the shell's provider put in front.
constexpr std::string_view kDecorations[] = {"Computer\\", "Registry::"};

bool equalsCaseless(std::string_view a, std::string_view b)
{
    return Str::compareCaseless(a.data(), a.size(), b.data(), b.size()) == 0;
}

bool startsCaseless(std::string_view text, std::string_view prefix)
{
    return equalsCaseless(text.substr(0, prefix.size()), prefix);
}

Str shortNameOf(std::string_view root)
{
    for (const RegistryRoot &known : kRegistryRoots) {
        const Str shortName = Str::fromUtf16(known.shortName);
        if (equalsCaseless(root, shortName.view()) ||
            equalsCaseless(root, Str::fromUtf16(known.longName).view())) {
            return shortName;
        }
    }
    return equalsCaseless(root, "HKCR") || equalsCaseless(root, "HKEY_CLASSES_ROOT") ? Str("HKCR") : Str();
}

[[noreturn]] void refuse(const char *fault, const Str &text)
{
    throw ExplainException(Str::fromFormat("%s: \"%s\"", fault, text.c_str()));
}

} // namespace

WrittenPath readWrittenPath(const Str &text)
{
    std::string_view path = text.view();
    if (path.ends_with('\\')) {
        path.remove_suffix(1);
    }
    if (startsCaseless(path, kKernelRoot)) {
        return {{}, Str(path)};
    }
    for (const std::string_view decoration : kDecorations) {
        if (startsCaseless(path, decoration)) {
            path.remove_prefix(decoration.size());
        }
    }
    const std::size_t end = std::min(path.find('\\'), path.size());
    std::string_view root = path.substr(0, end);
    path.remove_prefix(end);
    if (root.ends_with(':')) {
        root.remove_suffix(1);
    }
    const Str shortName = shortNameOf(root);
    if (shortName.empty()) {
        refuse("The path begins with none of HKLM, HKU, HKCU, HKCC, HKCR and \\REGISTRY", text);
    }
    if (path.starts_with("\\\\")) {
        refuse("A path takes one backslash where a pattern takes two", text);
    }
    return {shortName, Str(path.substr(path.empty() ? 0 : 1))};
}

WrittenPath withShortRoot(const WrittenPath &path)
{
    for (const RegistryRoot &known : kRegistryRoots) {
        if (!path.isKernels() || known.nativePath == nullptr) {
            continue;
        }
        const Str native = Str::fromUtf16(known.nativePath);
        const std::string_view rest = path.rest.view();
        if (startsCaseless(rest, native.view()) &&
            (rest.size() == native.size() || rest[native.size()] == '\\')) {
            return {Str::fromUtf16(known.shortName),
                    Str(rest.substr(std::min(native.size() + 1, rest.size())))};
        }
    }
    return path;
}

} // namespace velmox
