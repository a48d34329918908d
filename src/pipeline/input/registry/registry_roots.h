#pragma once

#include <cstdint>

namespace velmox {

/// A predefined key of the registry that events and settings may name. Plain values, so that code that needs
/// no operating system can use the table. HKEY_CLASSES_ROOT is not among them: it is a view of two other
/// places, and the kernel reports those.
struct RegistryRoot
{
    const char16_t *shortName;
    const char16_t *longName;
    /// The kernel's name; null for the current user, whose name differs from account to account.
    const char16_t *nativePath;
    /// The predefined handle's low half, 0x80000000 and above.
    std::uint32_t handle;

    /// The handle in full: Windows sign-extends it.
    constexpr std::uintptr_t key() const
    {
        return static_cast<std::uintptr_t>(static_cast<std::intptr_t>(static_cast<std::int32_t>(handle)));
    }
};

/// In the order in which they are listed to administrators.
inline constexpr RegistryRoot kRegistryRoots[] = {
    {u"HKLM", u"HKEY_LOCAL_MACHINE", u"\\REGISTRY\\MACHINE", 0x80000002},
    {u"HKU", u"HKEY_USERS", u"\\REGISTRY\\USER", 0x80000003},
    {u"HKCU", u"HKEY_CURRENT_USER", nullptr, 0x80000001},
    {u"HKCC", u"HKEY_CURRENT_CONFIG",
     u"\\REGISTRY\\MACHINE\\SYSTEM\\CurrentControlSet\\Hardware Profiles\\Current", 0x80000005},
};

} // namespace velmox
