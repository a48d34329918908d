#include "pipeline/input/explain/kernel_path.h"

#include "pipeline/input/registry/reg_key.h"
#include "pipeline/input/registry/registry_roots.h"

namespace velmox {

namespace {

constexpr char kReported[] = "as the kernel reports it";

HKEY handleOf(const Str &root)
{
    for (const RegistryRoot &known : kRegistryRoots) {
        if (Str::fromUtf16(known.shortName) == root) {
            return reinterpret_cast<HKEY>(known.key());
        }
    }
    return HKEY_CLASSES_ROOT;
}

/// Empty if there is no such key, or it cannot be looked at.
Str nameOfKey(HKEY root, const Str &path)
{
    RegistryKeyHandle key;
    WideStr name;
    const NtQueryObject query = findNtQueryObject();
    if (query == nullptr ||
        openKey(root, asWide(WideStr::fromUtf8(path)), KEY_QUERY_VALUE, key) != ERROR_SUCCESS ||
        !queryName(query, key.get(), name)) {
        return {};
    }
    return Str::fromUtf16(name);
}

/// What the table of roots says of a short name; empty if it says nothing.
Str nativeRoot(const Str &root, const HiveNames &hiveNames)
{
    const auto found = hiveNames.hiveKeyMap().find(WideStr::fromUtf8(root));
    if (found == hiveNames.hiveKeyMap().end()) {
        return {};
    }
    Str native = Str::fromUtf16(found->second.regexPath);
    native.replaceAll("\\\\", "\\");
    return native;
}

Str joinedPath(const Str &root, std::string_view rest)
{
    Str path = root;
    if (!rest.empty()) {
        path << '\\' << rest;
    }
    return path;
}

/// A name that ends in a number which the registry holds; in 1 if it holds none.
Str numbered(const char *name, int digits, const wchar_t *key, const wchar_t *value)
{
    RegistryKeyHandle holder;
    DWORD number = 1;
    DWORD size = sizeof number;
    if (openKey(HKEY_LOCAL_MACHINE, key, KEY_QUERY_VALUE, holder) != ERROR_SUCCESS ||
        RegQueryValueExW(holder.get(), value, nullptr, nullptr, reinterpret_cast<BYTE *>(&number), &size) !=
            ERROR_SUCCESS) {
        number = 1;
    }
    return Str::fromFormat("%s%0*u", name, digits, static_cast<unsigned>(number));
}

/// Puts a name in the place of the last one of `link`, where a path lies there.
void follow(Str &path, std::string_view link, const Str &target)
{
    const std::string_view text = path.view();
    if (text.size() < link.size() || (text.size() > link.size() && text[link.size()] != '\\') ||
        Str::compareCaseless(text.data(), link.size(), link.data(), link.size()) != 0) {
        return;
    }
    const std::size_t last = link.rfind('\\') + 1;
    path.replace(last, link.size() - last, target.view());
}

/// The links that each Windows has, for a system that has keys in their places.
Str withLinksFollowed(Str path)
{
    follow(path, "\\REGISTRY\\MACHINE\\SYSTEM\\CurrentControlSet\\Hardware Profiles\\Current",
           numbered("", 4, L"SYSTEM\\CurrentControlSet\\Control\\IDConfigDB", L"CurrentConfig"));
    follow(path, "\\REGISTRY\\MACHINE\\SYSTEM\\CurrentControlSet",
           numbered("ControlSet", 3, L"SYSTEM\\Select", L"Current"));
    return path;
}

} // namespace

KernelPath kernelPath(const WrittenPath &path, const HiveNames &hiveNames)
{
    if (path.isKernels()) {
        return {path.rest, "taken as the kernel's"};
    }
    const HKEY root = handleOf(path.root);
    const std::string_view rest = path.rest.view();
    for (std::size_t end = rest.size(); end != 0 && end != std::string_view::npos;
         end = rest.rfind('\\', end - 1)) {
        const Str name = nameOfKey(root, Str(rest.substr(0, end)));
        if (!name.empty()) {
            return {withLinksFollowed(joinedPath(name, rest.substr(std::min(end + 1, rest.size())))),
                    kReported};
        }
    }
    if (path.root == "HKCR") {
        return {kernelPath({"HKLM", joinedPath("SOFTWARE\\Classes", rest)}, hiveNames).path,
                "as the kernel reports what is made there; each user has classes too"};
    }
    const Str native = nativeRoot(path.root, hiveNames);
    if (native.empty()) {
        throw ExplainException(
            Str::fromFormat("The system does not say what %s stands for", path.root.c_str()));
    }
    return {withLinksFollowed(joinedPath(native, rest)), kReported};
}

Str currentUserKey(const HiveNames &hiveNames)
{
    const Str native = nativeRoot("HKCU", hiveNames);
    const std::size_t last = native.view().rfind('\\');
    return last == std::string_view::npos ? Str() : native.substr(last + 1);
}

} // namespace velmox
