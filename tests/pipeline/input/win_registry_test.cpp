#include "pipeline/input/hive_names.h"
#include "pipeline/input/reg_key.h"
#include "pipeline/input/win_registry.h"
#include "tests/pipeline/input/registry_test_key.h"
#include "tests/support/captured_log.h"
#include "tests/support/failing_call.h"
#include "tests/support/log_lines.h"

#include <gmock/gmock.h>

namespace velmox {
namespace {

using testing::CapturedLog;
using ::testing::ElementsAre;
using testing::FailingCall;
using ::testing::UnorderedElementsAre;

/// What a walk reported, and what to make of it on the way.
struct Walk
{
    std::vector<std::string> seen;
    std::vector<std::string> data;
    std::string veto;
    std::string stopAt;
    FILETIME lastWriteTime = {};
    volatile LONG stop = 0;

    void see(const char *mark, const Str &path)
    {
        seen.emplace_back(std::string(mark) + path.c_str());
        if (seen.back() == stopAt) {
            stop = 1;
        }
    }

    static BYTE onKey(const char16_t *path, const FILETIME &, void *context)
    {
        Walk &walk = *static_cast<Walk *>(context);
        walk.see("key ", Str::fromUtf16(path));
        return walk.seen.back() != walk.veto;
    }

    static void onValue(const char16_t *path, const char16_t *name, DWORD nameLength, DWORD type,
                        const BYTE *data, DWORD dataLength, const FILETIME &lastWriteTime, void *context)
    {
        Walk &walk = *static_cast<Walk *>(context);
        EXPECT_TRUE(WideStr(path).endsWith(WideStr(u"\\").append(name, nameLength)));
        walk.see("", Str::fromUtf16(path));
        const Str text = Str::fromFormat("%u/%u/%02x", static_cast<unsigned>(type),
                                         static_cast<unsigned>(dataLength), dataLength != 0 ? data[0] : 0u);
        walk.data.emplace_back(text.c_str());
        walk.lastWriteTime = lastWriteTime;
    }

    std::uint32_t run(const WideStr &path, bool withKeys = false)
    {
        return WinRegistry().walk(HKEY_CURRENT_USER, path.c_str(), withKeys ? onKey : nullptr, onValue, this,
                                  &stop);
    }
};

class WinRegistryWalk : public ::testing::Test
{
protected:
    std::string at(const char *rest) const { return std::string(Str::fromUtf16(key_.path()).c_str()) + rest; }

    RegistryTestKey key_;
    Walk walk_;
};

TEST_F(WinRegistryWalk, ReportsValuesBeforeSubKeysDepthFirst)
{
    key_.setNumber(u"", u"top", 7);
    key_.setValue(u"", u"", REG_SZ, u"x", 4);
    key_.setNumber(u"a\\deep", u"v", 1);
    key_.setValue(u"b", u"none", REG_NONE, nullptr, 0);
    WideStr slashed(u"\\\\\\");
    slashed.append(key_.path());

    EXPECT_EQ(walk_.run(slashed, true), 0u);
    ASSERT_EQ(walk_.seen.size(), 7u);
    // The order of values is the registry's own.
    EXPECT_THAT(std::vector(walk_.seen.begin(), walk_.seen.begin() + 2),
                UnorderedElementsAre(at("\\top"), at("\\")));
    EXPECT_THAT(std::vector(walk_.seen.begin() + 2, walk_.seen.end()),
                ElementsAre("key " + at("\\a"), "key " + at("\\a\\deep"), at("\\a\\deep\\v"),
                            "key " + at("\\b"), at("\\b\\none")));
    EXPECT_THAT(walk_.data, UnorderedElementsAre("4/4/07", "1/4/78", "4/4/01", "0/0/00"));

    FILETIME written = {};
    RegQueryInfoKeyW(key_.create(u"b").get(), nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                     nullptr, nullptr, nullptr, &written);
    EXPECT_EQ(CompareFileTime(&walk_.lastWriteTime, &written), 0);
}

TEST_F(WinRegistryWalk, StaysOutOfVetoedKeys)
{
    key_.setNumber(u"a\\deep", u"v", 1);
    key_.setNumber(u"b", u"v", 1);
    walk_.veto = "key " + at("\\a");
    EXPECT_EQ(walk_.run(key_.path(), true), 0u);
    EXPECT_THAT(walk_.seen, ElementsAre("key " + at("\\a"), "key " + at("\\b"), at("\\b\\v")));
}

TEST_F(WinRegistryWalk, StopsBeforeTheNextKeyButFinishesTheValues)
{
    key_.setNumber(u"", u"1", 1);
    key_.setNumber(u"", u"2", 1);
    key_.setNumber(u"a", u"v", 1);
    key_.setNumber(u"b", u"v", 1);
    walk_.stopAt = at("\\1");
    EXPECT_EQ(walk_.run(key_.path()), 0u);
    EXPECT_THAT(walk_.seen, UnorderedElementsAre(at("\\1"), at("\\2")));

    Walk later;
    later.stopAt = at("\\a\\v");
    EXPECT_EQ(later.run(key_.path()), 0u);
    EXPECT_THAT(later.seen, UnorderedElementsAre(at("\\1"), at("\\2"), at("\\a\\v")));
}

TEST_F(WinRegistryWalk, FitsLongNamesAndData)
{
    const WideStr longKey(std::size_t{250}, u'k');
    const WideStr longValue(std::size_t{600}, u'\u00E9');
    std::vector<BYTE> data(20001, 0xAB);
    key_.setValue(longKey.c_str(), longValue.c_str(), REG_BINARY, data.data(), data.size());
    EXPECT_EQ(walk_.run(key_.path()), 0u);
    WideStr path = key_.below(longKey.c_str());
    path.append(u"\\").append(longValue);
    EXPECT_THAT(walk_.seen, ElementsAre(Str::fromUtf16(path).c_str()));
    EXPECT_THAT(walk_.data, ElementsAre("3/20001/ab"));
}

TEST_F(WinRegistryWalk, GivesTheCodeOfTheKeyItself)
{
    EXPECT_EQ(WinRegistry().walk(HKEY_CURRENT_USER, nullptr, nullptr, Walk::onValue, &walk_, &walk_.stop),
              87u);
    EXPECT_EQ(walk_.run(key_.below(u"missing")), 2u);
}

TEST_F(WinRegistryWalk, BeginsPathsWithABackslashUnderARootItself)
{
    key_.setNumber(u"", u"v", 1);
    const RegistryKeyHandle top = key_.create(u"");
    ASSERT_EQ(WinRegistry().walk(top.get(), u"", nullptr, Walk::onValue, &walk_, &walk_.stop), 0u);
    EXPECT_THAT(walk_.seen, ElementsAre("\\v"));
}

/// A symbolic link; to nowhere, it is a key that is listed and cannot be opened.
class Link
{
public:
    Link(const RegistryTestKey &parent, const char16_t *name,
         const WideStr &target = u"\\Registry\\User\\VelmoxNowhere")
        : key_(parent.create(name, REG_OPTION_CREATE_LINK))
    {
        RegSetValueExW(key_.get(), L"SymbolicLinkValue", 0, REG_LINK,
                       reinterpret_cast<const BYTE *>(target.data()), static_cast<DWORD>(target.size() * 2));
    }
    ~Link()
    {
        // The calls that delete by name would follow the link.
        const auto ntDeleteKey = reinterpret_cast<LONG(NTAPI *)(HANDLE)>(
            reinterpret_cast<void *>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtDeleteKey")));
        EXPECT_EQ(ntDeleteKey(key_.get()), 0);
    }

private:
    RegistryKeyHandle key_;
};

TEST_F(WinRegistryWalk, ReturnsTheFailureOfTheLastSubKeyAlone)
{
    key_.setNumber(u"b", u"v", 1);
    {
        const Link first(key_, u"a");
        const Link deeper(key_, u"b\\z");
        EXPECT_EQ(walk_.run(key_.path()), 0u);
        EXPECT_THAT(walk_.seen, ElementsAre(at("\\b\\v")));
    }
    const Link last(key_, u"z");
    Walk second;
    EXPECT_EQ(second.run(key_.path()), 2u);
    EXPECT_THAT(second.seen, ElementsAre(at("\\b\\v")));
}

TEST_F(WinRegistryWalk, EndsWhereALinkLeadsBackUp)
{
    key_.setNumber(u"", u"v", 1);
    key_.setNumber(u"down", u"v", 1);
    HiveNames names;
    names.initHiveNameKeyMap();
    WideStr self;
    for (const auto &[name, info] : names.hiveKeyMap()) {
        if (info.shortName == u"HKCU" && name.startsWith(u"\\")) {
            self = name;
        }
    }
    self.append(u"\\").append(key_.path());
    const Link up(key_, u"up", self);
    const Link again(key_, u"down\\up", self);
    EXPECT_EQ(walk_.run(key_.path()), 0u);
    EXPECT_THAT(walk_.seen, ElementsAre(at("\\v"), at("\\down\\v")));
}

TEST_F(WinRegistryWalk, AFailureSkipsItsPartAndLeavesNothingOpen)
{
    key_.setNumber(u"", u"v", 1);
    key_.setNumber(u"a", u"v", 1);
    key_.setNumber(u"b", u"v", 1);
    const struct
    {
        const char *function;
        std::intptr_t result;
        int passed;
        std::uint32_t code;
        std::vector<std::string> seen;
        int keys;
        int blocks;
    } rows[] = {
        {"RegOpenKeyExW", 5, 0, 5, {}, 0, 0},
        {"RegOpenKeyExW", 5, 1, 0, {at("\\v"), at("\\b\\v")}, 2, 2},
        {"RegOpenKeyExW", 5, 2, 5, {at("\\v"), at("\\a\\v")}, 2, 2},
        {"RegQueryInfoKeyA", 6, 0, 6, {}, 1, 0},
        {"RegQueryInfoKeyA", 6, 2, 0, {at("\\v"), at("\\a\\v")}, 3, 2},
        {"LocalAlloc", 0, 0, 8, {}, 1, 0},
        {"LocalAlloc", 0, 1, 0, {at("\\v"), at("\\b\\v")}, 3, 2},
        {"RegEnumValueW", 5, 0, 0, {at("\\a\\v"), at("\\b\\v")}, 3, 3},
        {"RegEnumKeyExW", 5, 0, 0, {at("\\v"), at("\\b\\v")}, 2, 2},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(::testing::Message() << row.function << " after " << row.passed);
        const FailingCall refused(row.function, row.result, ERROR_NOT_ENOUGH_MEMORY, row.passed);
        const FailingCall closed("RegCloseKey", 0, 0, 0, 0);
        const FailingCall freed("LocalFree", 0, 0, 0, 0);
        Walk walk;
        EXPECT_EQ(walk.run(key_.path()), row.code);
        EXPECT_EQ(walk.seen, row.seen);
        EXPECT_EQ(closed.calls(), row.keys);
        EXPECT_EQ(freed.calls(), row.blocks);
    }
}

TEST(WinRegistry, ListsSubKeysAndSkipsNamesThatAreTooLong)
{
    RegistryTestKey key;
    const RegistryKeyHandle top = key.create(u"");
    WideStrVector names = {u"kept"};
    EXPECT_TRUE(WinRegistry().getSubKeys(top.get(), names));
    EXPECT_EQ(names.size(), 1u);

    const WideStr longest(std::size_t{254}, u'b');
    const WideStr tooLong(std::size_t{255}, u'b');
    for (const char16_t *name : {u"a", longest.c_str(), tooLong.c_str(), u"c\\d"}) {
        key.create(name);
    }
    EXPECT_TRUE(WinRegistry().getSubKeys(top.get(), names));
    EXPECT_THAT(names, ElementsAre(u"kept", u"a", longest, u"c"));

    const CapturedLog log;
    const FailingCall refused("RegEnumKeyExW", ERROR_ACCESS_DENIED, 0, 1);
    names.clear();
    EXPECT_FALSE(WinRegistry().getSubKeys(top.get(), names));
    EXPECT_THAT(names, ElementsAre(u"a"));
    EXPECT_EQ(log.text(),
              testing::logLines("ERROR WinRegistryApi: ",
                                "WinRegistry::getSubKeys: Enumerating registry key failed at key '1': '%m'",
                                ERROR_ACCESS_DENIED));
}

TEST(WinRegistry, KnowsTheRoots)
{
    StrVector names = {"kept"};
    EXPECT_TRUE(WinRegistry().listRootNames(names));
    EXPECT_THAT(names, ElementsAre("kept", "HKEY_LOCAL_MACHINE", "HKEY_USERS", "HKEY_CURRENT_USER",
                                   "HKEY_CURRENT_CONFIG"));
    EXPECT_EQ(WinRegistry().rootKey("HKU"), HKEY_USERS);
    EXPECT_EQ(WinRegistry().rootKey("HKEY_CURRENT_CONFIG"), HKEY_CURRENT_CONFIG);
    EXPECT_EQ(WinRegistry().rootKey("HKCR"), nullptr);
}

TEST(RegKey, ReadsOneKeyAndTellsWhatFails)
{
    RegistryTestKey test;
    test.create(u"sub");
    test.create(u"longer name");
    test.setNumber(u"", u"number", 42);

    RegKey key(HKEY_CURRENT_USER, u"HKCU", u"test", test.path());
    ASSERT_TRUE(key.open(KEY_READ));
    DWORD count = 0;
    DWORD longest = 0;
    EXPECT_TRUE(key.queryHiveInfo(count, longest));
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(longest, 11u);
    Str name;
    EXPECT_TRUE(key.enumKeyAtIndex(0, longest + 1, name));
    EXPECT_EQ(name, "longer name");
    EXPECT_TRUE(key.enumKeyAtIndex(0, 3, name)) << "no room";
    EXPECT_LE(name.size(), 3u);
    DWORD number = 0;
    DWORD type = 0;
    DWORD length = sizeof number;
    EXPECT_TRUE(key.queryValue(u"number", &type, reinterpret_cast<BYTE *>(&number), &length));
    EXPECT_EQ(number, 42u);
    EXPECT_EQ(type, static_cast<DWORD>(REG_DWORD));
    EXPECT_FALSE(key.queryValue(u"missing", &type, reinterpret_cast<BYTE *>(&number), &length));
    EXPECT_TRUE(RegKey(HKEY_CURRENT_USER, u"HKCU", u"", u"").open(KEY_READ)) << "a root itself";

    const CapturedLog log;
    EXPECT_FALSE(key.enumKeyAtIndex(2, longest + 1, name));
    EXPECT_FALSE(RegKey(HKEY_CURRENT_USER, u"HKCU", u"test", test.below(u"none")).open(KEY_READ));
    const FailingCall refused("RegQueryInfoKeyW", ERROR_ACCESS_DENIED, 0);
    EXPECT_FALSE(key.queryHiveInfo(count, longest));
    EXPECT_EQ(log.text(), testing::logLines("ERROR WinRegistryApi: ",
                                            "RegEnumKeyExW failed for test in HKCU with error 0x103\n"
                                            "RegKey::open - RegOpenKeyExW returned error 2: %m\n"
                                            "RegQueryInfoKeyW failed for test in HKCU with error 0x5",
                                            ERROR_FILE_NOT_FOUND));
}

} // namespace
} // namespace velmox
