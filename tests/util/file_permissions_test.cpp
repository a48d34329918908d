#include "tests/support/scoped_folder.h"
#include "util/file_descriptor.h"
#include "util/file_system.h"

#include <aclapi.h>
#include <gtest/gtest.h>
#include <sddl.h>
#include <string>
#include <vector>

namespace velmox {
namespace {

std::string textOf(PSID sid)
{
    char *text = nullptr;
    if (!ConvertSidToStringSidA(sid, &text)) {
        return "<no identity>";
    }
    const std::string result(text);
    LocalFree(text);
    return result;
}

std::string currentUser()
{
    HANDLE token = nullptr;
    alignas(TOKEN_USER) BYTE user[256];
    DWORD length = 0;
    EXPECT_TRUE(OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token));
    EXPECT_TRUE(GetTokenInformation(token, TokenUser, user, sizeof user, &length));
    CloseHandle(token);
    return textOf(reinterpret_cast<TOKEN_USER *>(user)->User.Sid);
}

/// The entries of an access list, each as "identity access", with "user" for this process's own.
std::vector<std::string> entriesOf(ACL *list)
{
    std::vector<std::string> entries;
    for (DWORD at = 0; list && at < list->AceCount; ++at) {
        ACCESS_ALLOWED_ACE *entry = nullptr;
        EXPECT_TRUE(GetAce(list, at, reinterpret_cast<void **>(&entry)));
        EXPECT_EQ(entry->Header.AceType, ACCESS_ALLOWED_ACE_TYPE);
        const std::string who = textOf(&entry->SidStart);
        entries.push_back(std::string(who == currentUser() ? "user" : who) + " " +
                          Str::fromFormat("%lX", entry->Mask).c_str());
    }
    return entries;
}

constexpr const char *kAdministrators = "S-1-5-32-544 1F01FF";

TEST(FilePermissionsTest, BuildsItsThreeAccessLists)
{
    const struct
    {
        FilePermissions permissions;
        std::vector<std::string> entries;
    } cases[] = {
        {FilePermissions::PublicRead, {"user 1F01FF", "S-1-1-0 120089", kAdministrators}},
        {FilePermissions::Private, {"user 1F01FF", kAdministrators}},
        {FilePermissions::OwnerReadOnly, {"user 120089", kAdministrators}},
    };
    for (const auto &c : cases) {
        FileSecurity security = FileSecurity::require(c.permissions);
        PSECURITY_DESCRIPTOR descriptor = security.get()->lpSecurityDescriptor;
        EXPECT_TRUE(IsValidSecurityDescriptor(descriptor));
        BOOL present = FALSE;
        BOOL defaulted = FALSE;
        ACL *list = nullptr;
        PSID owner = nullptr;
        ASSERT_TRUE(GetSecurityDescriptorDacl(descriptor, &present, &list, &defaulted));
        ASSERT_TRUE(GetSecurityDescriptorOwner(descriptor, &owner, &defaulted));
        EXPECT_TRUE(present);
        EXPECT_EQ(entriesOf(list), c.entries);
        EXPECT_EQ(textOf(owner), currentUser());
    }
}

/// What the file system reports of a file: the entries for its owner and for everyone.
std::vector<std::string> storedEntries(const Pathname &path)
{
    ACL *list = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    EXPECT_EQ(GetNamedSecurityInfoW(const_cast<wchar_t *>(asWide(path)), SE_FILE_OBJECT,
                                    DACL_SECURITY_INFORMATION, nullptr, nullptr, &list, nullptr, &descriptor),
              ERROR_SUCCESS + 0u);
    std::vector<std::string> entries = entriesOf(list);
    LocalFree(descriptor);
    std::erase_if(entries, [](const std::string &entry) {
        return !entry.starts_with("user ") && !entry.starts_with("S-1-1-0 ");
    });
    return entries;
}

TEST(FilePermissionsTest, ReachTheFileSystem)
{
    const testing::ScopedFolder folder;
    const auto create = [&folder](const char *name, FilePermissions permissions) {
        FileDescriptor file;
        EXPECT_TRUE(file.openWrite(folder / name, permissions));
        file.close();
        return storedEntries(folder / name);
    };
    const auto everyoneReads = [](const std::vector<std::string> &entries) {
        return std::ranges::find_if(entries, [](const std::string &entry) {
                   return entry.starts_with("S-1-1-0 1200");
               }) != entries.end();
    };
    EXPECT_TRUE(everyoneReads(create("public", FilePermissions::PublicRead)));
    EXPECT_FALSE(everyoneReads(create("private", FilePermissions::Private)));
    EXPECT_FALSE(everyoneReads(create("owner", FilePermissions::OwnerReadOnly)));
    EXPECT_TRUE(makeDir(folder / "public-folder", true) && makeDir(folder / "private-folder", false));
    EXPECT_TRUE(everyoneReads(storedEntries(folder / "public-folder")));
    EXPECT_FALSE(everyoneReads(storedEntries(folder / "private-folder")));
}

} // namespace
} // namespace velmox
