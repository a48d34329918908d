// registry-exerciser [--rounds N] [--pause MILLISECONDS]
//
// Changes the registry as programs do: makes keys, sets a value of each type, renames a value and a key,
// deletes it all. Works below Software\VelmoxExercise of the current user. --rounds 0 goes on for ever. The
// exit code is 0 if every call succeeded.

#include "testbed/record_builder.h"
#include "util/system/library_routine.h"
#include "util/system/windows_api.h"

#include <charconv>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <winternl.h>

namespace velmox::testbed {

namespace {

struct Options
{
    unsigned rounds = 1;
    unsigned pauseMilliseconds = 0;
};

struct NamedValue
{
    const wchar_t *name;
    DWORD type;
    Bytes data;
};

constexpr const wchar_t *kHome = L"Software\\VelmoxExercise";

void check(LSTATUS error, const char *what)
{
    if (error == ERROR_SUCCESS)
        return;
    std::fprintf(stderr, "registry-exerciser: %s failed with %ld\n", what, error);
    std::exit(1);
}

class Key
{
public:
    Key(HKEY parent, const wchar_t *name)
    {
        check(RegCreateKeyExW(parent, name, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &handle_, nullptr),
              "making a key");
    }
    Key(const Key &) = delete;
    Key &operator=(const Key &) = delete;
    ~Key() { RegCloseKey(handle_); }

    HKEY handle() const { return handle_; }

    void set(const wchar_t *name, DWORD type, const Bytes &data)
    {
        check(RegSetValueExW(handle_, name, 0, type, data.data(), static_cast<DWORD>(data.size())),
              "setting a value");
    }
    void deleteValue(const wchar_t *name) { check(RegDeleteValueW(handle_, name), "deleting a value"); }
    void deleteKey(const wchar_t *name) { check(RegDeleteKeyW(handle_, name), "deleting a key"); }

private:
    HKEY handle_ = nullptr;
};

std::vector<NamedValue> valuesOfEachType()
{
    return {
        {L"none", REG_NONE, {}},
        {L"string", REG_SZ, stringData(u"plain \u00fcber \u03b1\u03b2\u03b3 \U0001f511")},
        {L"expand", REG_EXPAND_SZ, stringData(u"%SystemRoot%\\notepad.exe")},
        {L"binary", REG_BINARY, {0, 1, 2, 254, 255}},
        {L"dword", REG_DWORD, dwordData(305419896)},
        {L"bigEndian", REG_DWORD_BIG_ENDIAN, {1, 2, 3, 4}},
        {L"link", REG_LINK, textData(u"\\Registry\\Machine\\Software")},
        {L"list", REG_MULTI_SZ, multiStringData({u"first", u"second", u"third"})},
        {L"qword", REG_QWORD, qwordData(0xFFFFFFFFFFFFFFFF)},
        {L"", REG_SZ, stringData(u"the default value")},
    };
}

// A value cannot be renamed: programs set it anew under the other name.
void renameValue(Key &key)
{
    key.set(L"oldName", REG_SZ, stringData(u"kept"));
    key.set(L"newName", REG_SZ, stringData(u"kept"));
    key.deleteValue(L"oldName");
}

using NtRenameKeyRoutine = NTSTATUS(NTAPI *)(HANDLE, UNICODE_STRING *);

NtRenameKeyRoutine findNtRenameKey()
{
    NtRenameKeyRoutine routine = nullptr;
    findRoutine(GetModuleHandleW(L"ntdll.dll"), "NtRenameKey", routine);
    return routine;
}

void renameKey(const Key &key, wchar_t *newName)
{
    const NtRenameKeyRoutine ntRenameKey = findNtRenameKey();
    check(ntRenameKey ? ERROR_SUCCESS : ERROR_PROC_NOT_FOUND, "finding NtRenameKey");
    const auto bytes = static_cast<USHORT>(std::char_traits<wchar_t>::length(newName) * sizeof(wchar_t));
    UNICODE_STRING name = {bytes, bytes, newName};
    check(static_cast<LSTATUS>(ntRenameKey(key.handle(), &name)), "renaming a key");
}

/// One after the other, with a pause between: a watcher that only compares sees each by itself.
void runRound(const Options &options)
{
    Key home(HKEY_CURRENT_USER, kHome);
    const auto pause = [&] { Sleep(options.pauseMilliseconds); };
    {
        Key types(home.handle(), L"Types");
        for (const NamedValue &value : valuesOfEachType()) {
            types.set(value.name, value.type, value.data);
            pause();
        }
        types.set(L"dword", REG_DWORD, dwordData(1));
        pause();
        renameValue(types);
        pause();
        Key(types.handle(), L"Below").set(L"deep", REG_SZ, stringData(u"down here"));
        pause();
        wchar_t renamed[] = L"Renamed";
        renameKey(types, renamed);
        pause();
    }
    Key(home.handle(), L"Renamed").deleteKey(L"Below");
    pause();
    home.deleteKey(L"Renamed");
    pause();
    check(RegDeleteKeyW(HKEY_CURRENT_USER, kHome), "deleting the home key");
    pause();
}

bool readNumber(const char *text, unsigned &number)
{
    const char *end = text + std::strlen(text);
    return std::from_chars(text, end, number).ptr == end && end != text;
}

bool readOptions(int count, char **arguments, Options &options)
{
    for (int i = 1; i < count; ++i) {
        const std::string_view argument = arguments[i];
        const char *value = i + 1 < count ? arguments[i + 1] : "";
        if (argument == "--rounds" && readNumber(value, options.rounds))
            ++i;
        else if (argument == "--pause" && readNumber(value, options.pauseMilliseconds))
            ++i;
        else
            return false;
    }
    return true;
}

int run(int count, char **arguments)
{
    Options options;
    if (!readOptions(count, arguments, options)) {
        std::fputs("usage: registry-exerciser [--rounds N] [--pause MILLISECONDS]\n", stderr);
        return 2;
    }
    for (unsigned round = 0; options.rounds == 0 || round < options.rounds; ++round)
        runRound(options);
    return 0;
}

} // namespace

} // namespace velmox::testbed

int main(int argc, char **argv)
{
    return velmox::testbed::run(argc, argv);
}
