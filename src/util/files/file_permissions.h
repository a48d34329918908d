#pragma once

#include "util/system/owned_handle.h"
#include "util/text/base_exception.h"
#include "util/text/pathname.h"

namespace velmox {

/// Who may use a file or folder that the system creates. Administrators have every right, and the user of the
/// process token owns it.
enum class FilePermissions
{
    PublicRead = 0,    ///< the owner has every right, everyone reads
    Private = 1,       ///< the owner has every right
    OwnerReadOnly = 2, ///< the owner reads
};

/// CreateFileW for a file that gets permissions if it is new. Invalid, with the reason in the last error, on
/// failure.
FileHandle createFile(const Pathname &path, DWORD access, DWORD sharing, DWORD disposition,
                      FilePermissions permissions);

/// Raised when a creation that insists on its permissions cannot have them: see `requireFileSecurity`.
class FilePermissionsException : public BaseException
{
public:
    using BaseException::BaseException;
};

/// The security attributes of one creation, in a heap of their own.
class FileSecurity
{
public:
    /// Check `isValid`: the last error holds the reason when there are none.
    explicit FileSecurity(FilePermissions permissions);

    bool isValid() const { return attributes_.lpSecurityDescriptor != nullptr; }
    SECURITY_ATTRIBUTES *get() { return &attributes_; }

private:
    struct HeapTraits
    {
        using Type = HANDLE;
        static Type invalid() { return nullptr; }
        static void close(Type heap) { HeapDestroy(heap); }
    };

    /// Of the descriptor and all that it points to.
    OwnedHandle<HeapTraits> heap_;
    SECURITY_ATTRIBUTES attributes_ = {sizeof(SECURITY_ATTRIBUTES), nullptr, FALSE};
};

} // namespace velmox
