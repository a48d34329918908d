#include "pipeline/input/registry/reg_key.h"
#include "pipeline/input/registry/win_registry.h"
#include "tests/pipeline/input/registry/registry_test_key.h"

namespace velmox {
namespace {

/// What to make of a walk on its way, and what it reported: "[\key]" and "\key\value=type/length/first byte".
struct Walk
{
    bool withKeys = false;
    std::string veto, stopAt;
    std::string seen = {};
    std::size_t prefix = 0;
    FILETIME lastWriteTime = {};
    volatile LONG stop = 0;

    std::string see(const char16_t *path, const char *before, const std::string &after)
    {
        const std::string one = before + std::string(Str::fromUtf16(path).view().substr(prefix)) + after;
        seen += one + " ";
        stop = stop != 0 || one == stopAt;
        return one;
    }

    static BYTE onKey(const char16_t *path, const FILETIME &, void *context)
    {
        Walk &walk = *static_cast<Walk *>(context);
        return walk.see(path, "[", "]") != walk.veto;
    }

    static void onValue(const char16_t *path, const char16_t *name, DWORD nameLength, DWORD type,
                        const BYTE *data, DWORD dataLength, const FILETIME &lastWriteTime, void *context)
    {
        Walk &walk = *static_cast<Walk *>(context);
        EXPECT_TRUE(WideStr(path).endsWith(WideStr(u"\\").append(name, nameLength)));
        walk.see(path, "",
                 Str::fromFormat("=%lu/%lu/%02x", type, dataLength, dataLength ? *data : 0u).c_str());
        walk.lastWriteTime = lastWriteTime;
    }
};

/// Walks of a key with two values and the sub keys a, a\deep and b, which have one each.
class WinRegistryWalk : public ::testing::Test
{
protected:
    WinRegistryWalk()
    {
        key_.setNumber(u"", u"1", 7);
        key_.setValue(u"", u"2", REG_SZ, u"x", 4);
        key_.setNumber(u"a", u"v", 1);
        key_.setValue(u"a\\deep", u"", REG_NONE, nullptr, 0);
        key_.setNumber(u"b", u"v", 2);
    }

    /// What it reports, paths from the key on, and the code.
    std::string walked(Walk &&walk, const char16_t *before = u"")
    {
        walk.prefix = key_.path().size();
        const std::uint32_t code =
            WinRegistry().walk(HKEY_CURRENT_USER, WideStr(before).append(key_.path()).c_str(),
                               walk.withKeys ? Walk::onKey : nullptr, Walk::onValue, &walk, &walk.stop);
        lastWriteTime_ = walk.lastWriteTime;
        return walk.seen + std::to_string(code);
    }

    RegistryTestKey key_;
    FILETIME lastWriteTime_ = {};
};

const std::string kTop = R"(\1=4/4/07 \2=1/4/78 )";
const std::string kA = R"(\a\v=4/4/01 \a\deep\=0/0/00 )";
const std::string kB = R"(\b\v=4/4/02 )";

TEST_F(WinRegistryWalk, ReportsValuesBeforeSubKeysDepthFirst)
{
    EXPECT_EQ(walked({}, u"\\\\\\"), kTop + kA + kB + "0");
    FILETIME written = {};
    RegQueryInfoKeyW(key_.create(u"b").get(), nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                     nullptr, nullptr, nullptr, &written);
    EXPECT_EQ(CompareFileTime(&lastWriteTime_, &written), 0);
    EXPECT_EQ(walked({true}), kTop + R"([\a] \a\v=4/4/01 [\a\deep] \a\deep\=0/0/00 [\b] \b\v=4/4/02 0)");
    EXPECT_EQ(walked({true, "[\\a]"}), kTop + R"([\a] [\b] \b\v=4/4/02 0)") << "a veto";
    // A stop comes before the next key, when the values are done.
    EXPECT_EQ(walked({false, "", "\\1=4/4/07"}), kTop + "0");
    EXPECT_EQ(walked({false, "", "\\a\\v=4/4/01"}), kTop + R"(\a\v=4/4/01 0)");
    EXPECT_EQ(walked({true, "", "\\a\\v=4/4/01"}), kTop + R"([\a] \a\v=4/4/01 [\a\deep] 0)");

    // Under a root itself paths begin with a backslash.
    Walk walk;
    const RegistryKeyHandle b = key_.create(u"b");
    ASSERT_EQ(WinRegistry().walk(b.get(), u"", nullptr, Walk::onValue, &walk, &walk.stop), 0u);
    EXPECT_EQ(walk.seen, "\\v=4/4/02 ");
    EXPECT_EQ(WinRegistry().walk(b.get(), nullptr, nullptr, Walk::onValue, &walk, &walk.stop), 87u);
    EXPECT_EQ(WinRegistry().walk(b.get(), u"none", nullptr, Walk::onValue, &walk, &walk.stop), 2u);
}

TEST_F(WinRegistryWalk, FitsLongNamesAndData)
{
    const WideStr longKey(std::size_t{250}, u'k');
    const WideStr longValue(std::size_t{600}, u'\u00E9');
    const std::vector<BYTE> data(20001, 0xAB);
    key_.setValue(longKey.c_str(), longValue.c_str(), REG_BINARY, data.data(), data.size());
    const Str path = Str::fromUtf16(WideStr(u"\\").append(longKey).append(u"\\").append(longValue));
    EXPECT_EQ(walked({}), kTop + kA + kB + path.c_str() + "=3/20001/ab 0");
}

TEST_F(WinRegistryWalk, AFailureSkipsItsPartAndLeavesNothingOpen)
{
    const struct
    {
        const char *function;
        int passed, keys;
        std::string walk;
    } rows[] = {
        {"RegOpenKeyExW", 1, 2, kTop + kB + "0"},
        {"RegOpenKeyExW", 3, 3, kTop + kA + "5"}, // the last sub key
        {"RegEnumValueW", 0, 4, "\\2=1/4/78 " + kA + kB + "0"},
        {"RegEnumKeyExW", 0, 2, kTop + kB + "0"},
    };
    for (const auto &row : rows) {
        const FailingCall closed("RegCloseKey", 0, 0, 0, 0);
        EXPECT_EQ(
            whileFailing({row.function, ERROR_ACCESS_DENIED, 0, row.passed}, [&] { return walked({}); }),
            row.walk);
        EXPECT_EQ(closed.calls(), row.keys) << row.function;
    }
}

/// A symbolic link to a key.
class Link
{
public:
    Link(const RegistryTestKey &parent, const char16_t *name, const WideStr &target)
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

TEST_F(WinRegistryWalk, EndsWhereALinkLeadsBackUp)
{
    WideStr self;
    ASSERT_TRUE(queryName(findNtQueryObject(), key_.create(u"").get(), self));
    const Link up(key_, u"up", self);
    const Link again(key_, u"a\\up", self);
    EXPECT_EQ(walked({}), kTop + kA + kB + "0");
}

// What the monitor itself does not call: for tools that show administrators their keys.
TEST(WinRegistry, ListsRootsAndSubKeysAndReadsOneKey)
{
    StrVector roots;
    EXPECT_TRUE(WinRegistry().listRootNames(roots));
    EXPECT_THAT(roots,
                ElementsAre("HKEY_LOCAL_MACHINE", "HKEY_USERS", "HKEY_CURRENT_USER", "HKEY_CURRENT_CONFIG"));
    EXPECT_EQ(WinRegistry().rootKey("HKU"), HKEY_USERS);
    EXPECT_EQ(WinRegistry().rootKey("HKCR"), nullptr);

    RegistryTestKey test;
    const WideStr longest(std::size_t{254}, u'b');
    const WideStr tooLong(std::size_t{255}, u'b');
    for (const char16_t *name : {u"a", longest.c_str(), tooLong.c_str(), u"c"}) {
        test.create(name);
    }
    test.setNumber(u"", u"number", 42);
    WideStrVector names = {u"kept"};
    EXPECT_TRUE(WinRegistry().getSubKeys(test.create(u"").get(), names));
    EXPECT_THAT(names, ElementsAre(u"kept", u"a", longest, u"c"));

    RegKey key(HKEY_CURRENT_USER, u"HKCU", u"test", test.path());
    ASSERT_TRUE(key.open(KEY_READ));
    DWORD count = 0;
    DWORD room = 0;
    EXPECT_TRUE(key.queryHiveInfo(count, room));
    EXPECT_EQ(count, 4u);
    EXPECT_EQ(room, 255u);
    Str name;
    EXPECT_TRUE(key.enumKeyAtIndex(1, 300, name));
    EXPECT_EQ(name, Str::fromUtf16(longest));
    DWORD number = 0;
    DWORD length = sizeof number;
    EXPECT_TRUE(key.queryValue(u"number", nullptr, reinterpret_cast<BYTE *>(&number), &length));
    EXPECT_EQ(number, 42u);
    EXPECT_FALSE(key.queryValue(u"missing", nullptr, nullptr, &length));

    EXPECT_FALSE(key.enumKeyAtIndex(4, 300, name));
    EXPECT_FALSE(RegKey(HKEY_CURRENT_USER, u"HKCU", u"test", test.below(u"none")).open(KEY_READ));
}

} // namespace
} // namespace velmox
