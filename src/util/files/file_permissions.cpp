#include "util/files/file_permissions.h"

#include "util/log/logger.h"
#include "util/thread/critical_section.h"

#include <mutex>
#include <span>

namespace velmox {

namespace {

Logger logger("FilePermissions");

constexpr DWORD kFullAccess = 0x1F01FF;
constexpr DWORD kReadAccess = 0x120089;

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
    CriticalSection lock_;
    bool found_ = false;
    Identities identities_;
};

Identities *identities()
{
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
    switch (permissions) {
    case FilePermissions::PublicRead: {
        const AccessEntry entries[] = {
            {parties.owner, kFullAccess}, {parties.everyone, kReadAccess}, administrators};
        return buildAccessList(heap, entries);
    }
    case FilePermissions::OwnerReadOnly: {
        const AccessEntry entries[] = {{parties.owner, kReadAccess}, administrators};
        return buildAccessList(heap, entries);
    }
    default: {
        const AccessEntry entries[] = {{parties.owner, kFullAccess}, administrators};
        return buildAccessList(heap, entries);
    }
    }
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
    const bool built = InitializeSecurityDescriptor(descriptor, SECURITY_DESCRIPTOR_REVISION) &&
                       SetSecurityDescriptorOwner(descriptor, parties->owner, FALSE) &&
                       SetSecurityDescriptorDacl(descriptor, TRUE, list, FALSE);
    return built ? descriptor : nullptr;
}

} // namespace

FileSecurity::FileSecurity(FilePermissions permissions) : heap_(HeapCreate(0, 0, 0))
{
    if (heap_.isValid()) {
        attributes_.lpSecurityDescriptor = buildDescriptor(heap_.get(), permissions);
    }
}

FileSecurity FileSecurity::require(FilePermissions permissions)
{
    FileSecurity security(permissions);
    if (!security.isValid()) {
        const Str message = Str::fromLastErrorFormat("Error building the permissions of a new file: %m");
        logger.error("%s", message.c_str());
        throw FilePermissionsException(message);
    }
    return security;
}

} // namespace velmox
