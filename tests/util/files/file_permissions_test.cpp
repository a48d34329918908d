#include "util/files/file_descriptor.h"
#include "util/files/file_system.h"

#include <aclapi.h>
#include <sddl.h>

namespace velmox {
namespace {

/// The descriptor in the language of the system, with S-1-5-21-1 for this process's user.
Str textOf(PSECURITY_DESCRIPTOR descriptor)
{
    alignas(TOKEN_USER) BYTE token[256];
    DWORD length = 0;
    char *user = nullptr;
    char *text = nullptr;
    HANDLE process = nullptr;
    EXPECT_TRUE(OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &process));
    const KernelHandle owner(process);
    EXPECT_TRUE(GetTokenInformation(process, TokenUser, token, sizeof token, &length));
    EXPECT_TRUE(ConvertSidToStringSidA(reinterpret_cast<TOKEN_USER *>(token)->User.Sid, &user));
    EXPECT_TRUE(ConvertSecurityDescriptorToStringSecurityDescriptorA(
        descriptor, SDDL_REVISION_1, OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION, &text, nullptr));
    Str result(text);
    result.replaceAll(user, "USER");
    LocalFree(user);
    LocalFree(text);
    return result;
}

TEST(FilePermissions, BuildTheirThreeAccessLists)
{
    const std::pair<FilePermissions, const char *> cases[] = {
        {FilePermissions::PublicRead, "O:USERD:(A;;FA;;;USER)(A;;FR;;;WD)(A;;FA;;;BA)"},
        {FilePermissions::Private, "O:USERD:(A;;FA;;;USER)(A;;FA;;;BA)"},
        {FilePermissions::OwnerReadOnly, "O:USERD:(A;;FR;;;USER)(A;;FA;;;BA)"}};
    for (const auto &[permissions, text] : cases) {
        FileSecurity security(permissions);
        EXPECT_EQ(textOf(security.get()->lpSecurityDescriptor), text);
    }
}

TEST(FilePermissions, ReachTheFileSystem)
{
    const ScopedFolder folder;
    for (const auto permissions :
         {FilePermissions::PublicRead, FilePermissions::Private, FilePermissions::OwnerReadOnly}) {
        const bool isPublic = permissions == FilePermissions::PublicRead;
        const Pathname file = folder / (isPublic ? "public" : "private");
        const Pathname made = file.concat(" folder");
        DeleteFileW(asWide(file));
        EXPECT_TRUE(FileDescriptor().openWrite(file, permissions));
        EXPECT_TRUE(makeDirs(made, isPublic));
        for (const Pathname &path : {file, made}) {
            PSECURITY_DESCRIPTOR descriptor = nullptr;
            EXPECT_EQ(GetNamedSecurityInfoW(const_cast<wchar_t *>(asWide(path)), SE_FILE_OBJECT,
                                            OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION, nullptr,
                                            nullptr, nullptr, nullptr, &descriptor),
                      ERROR_SUCCESS + 0u);
            EXPECT_EQ(textOf(descriptor).contains(";;;WD)"), isPublic) << path.toStr().c_str();
            LocalFree(descriptor);
        }
    }
}

} // namespace
} // namespace velmox
