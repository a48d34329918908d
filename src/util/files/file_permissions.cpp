#include "util/files/file_permissions.h"

#include <mutex>
#include <span>

namespace velmox {

namespace {

// FILE_ALL_ACCESS and FILE_GENERIC_READ of winnt.h.
constexpr DWORD kFullAccess = 0x1F01FF;
constexpr DWORD kReadAccess = 0x120089;

// Identities are looked up once a process, because a token and a domain may take their time to answer. A
// descriptor with all that it points to lies in a heap of its own, which goes in one call however far
// building it came.

/// The three parties of every access list, found once and kept for the life of the process.
struct Identities
{
    alignas(SID) BYTE owner[SECURITY_MAX_SID_SIZE];
    alignas(SID) BYTE everyone[SECURITY_MAX_SID_SIZE];
    alignas(SID) BYTE administrators[SECURITY_MAX_SID_SIZE];
};

bool findOwner(BYTE (&sid)[SECURITY_MAX_SID_SIZE])
{
    HANDLE token = nullptr;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token)) {
        return false;
    }
    const KernelHandle owner(token);
    // The identity that the structure points to stands behind it in the same buffer.
    alignas(TOKEN_USER) BYTE user[sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE];
    DWORD length = 0;
    return GetTokenInformation(token, TokenUser, user, sizeof user, &length) &&
           CopySid(sizeof sid, sid, reinterpret_cast<TOKEN_USER *>(user)->User.Sid);
}

bool findWellKnown(WELL_KNOWN_SID_TYPE type, BYTE (&sid)[SECURITY_MAX_SID_SIZE])
{
    DWORD length = sizeof sid;
    return CreateWellKnownSid(type, nullptr, sid, &length) != FALSE;
}

class IdentityCache
{
public:
    /// Null, with the reason in the last error, when they cannot be found; the next call tries again.
    Identities *get()
    {
        const std::lock_guard held(lock_);
        found_ =
            found_ || (findOwner(identities_.owner) && findWellKnown(WinWorldSid, identities_.everyone) &&
                       findWellKnown(WinBuiltinAdministratorsSid, identities_.administrators));
        return found_ ? &identities_ : nullptr;
    }

private:
    std::mutex lock_;
    bool found_ = false;
    Identities identities_;
};

Identities *identities()
{
    // Never destroyed: threads that outlive main may still create files.
    static IdentityCache &cache = *new IdentityCache;
    return cache.get();
}

struct AccessEntry
{
    PSID party;
    DWORD access;
};

ACL *buildAccessList(HANDLE heap, std::span<const AccessEntry> entries)
{
    DWORD size = sizeof(ACL);
    for (const AccessEntry &entry : entries) {
        // The last member of the entry is only the first four bytes of the identity that takes its place.
        size += static_cast<DWORD>(sizeof(ACCESS_ALLOWED_ACE) - sizeof(DWORD)) + GetLengthSid(entry.party);
    }
    auto *list = static_cast<ACL *>(HeapAlloc(heap, 0, size));
    if (!list) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    bool built = InitializeAcl(list, size, ACL_REVISION) != FALSE;
    for (const AccessEntry &entry : entries) {
        built = built && AddAccessAllowedAce(list, ACL_REVISION, entry.access, entry.party) != FALSE;
    }
    return built ? list : nullptr;
}

ACL *accessListOf(HANDLE heap, FilePermissions permissions, Identities &parties)
{
    const AccessEntry administrators = {parties.administrators, kFullAccess};
    const AccessEntry owner = {parties.owner,
                               permissions == FilePermissions::OwnerReadOnly ? kReadAccess : kFullAccess};
    if (permissions == FilePermissions::PublicRead) {
        const AccessEntry entries[] = {owner, {parties.everyone, kReadAccess}, administrators};
        return buildAccessList(heap, entries);
    }
    const AccessEntry entries[] = {owner, administrators};
    return buildAccessList(heap, entries);
}

SECURITY_DESCRIPTOR *buildDescriptor(HANDLE heap, FilePermissions permissions)
{
    Identities *parties = identities();
    ACL *list = parties ? accessListOf(heap, permissions, *parties) : nullptr;
    if (!list) {
        return nullptr;
    }
    auto *descriptor = static_cast<SECURITY_DESCRIPTOR *>(HeapAlloc(heap, 0, sizeof(SECURITY_DESCRIPTOR)));
    if (!descriptor) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    // The owner is named, because an administrator's files may belong to the group of administrators
    // otherwise.
    const bool built = InitializeSecurityDescriptor(descriptor, SECURITY_DESCRIPTOR_REVISION) &&
                       SetSecurityDescriptorOwner(descriptor, parties->owner, FALSE) &&
                       SetSecurityDescriptorDacl(descriptor, TRUE, list, FALSE);
    return built ? descriptor : nullptr;
}

} // namespace

FileHandle createFile(const Pathname &path, DWORD access, DWORD sharing, DWORD disposition,
                      FilePermissions permissions)
{
    FileSecurity security(permissions);
    return security.isValid() ? FileHandle(CreateFileW(asWide(path), access, sharing, security.get(),
                                                       disposition, FILE_ATTRIBUTE_NORMAL, nullptr))
                              : FileHandle();
}

FileSecurity::FileSecurity(FilePermissions permissions) : heap_(HeapCreate(0, 0, 0))
{
    if (heap_.isValid()) {
        attributes_.lpSecurityDescriptor = buildDescriptor(heap_.get(), permissions);
    }
}

} // namespace velmox
