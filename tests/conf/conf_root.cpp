#include "tests/conf/conf_root.h"

#include "conf/store/conf_path_mapper_manager.h"
#include "conf/store/shared_conf_services.h"
#include "searchthing/filesystem_change_watcher.h"
#include "util/system/environment.h"
#include "util/time/clock.h"

namespace velmox::testing {

namespace {

void replaceErrorTexts(Str &text)
{
    for (const unsigned error : {2u, 3u, 4u, 5u, 8u, 17u, 23u, 32u, 112u, 183u, 1113u}) {
        Str words;
        words.appendErrorText(error);
        text.replaceAll(words, Str::fromFormat("<%u>", error));
    }
}

void removeTimes(Str &text)
{
    constexpr std::string_view kStart = " attempt(s) made between ";
    for (std::size_t at = text.find(kStart); at != Str::npos; at = text.find(kStart, at + 1)) {
        const std::size_t from = at + std::string_view(" attempt(s)").size();
        text.erase(from, std::min(text.find(" [", from), text.find('\n', from)) - from);
    }
}

} // namespace

Str ConfRoot::shippedBootstrap()
{
    return readWhole(Pathname::fromUtf8(VELMOX_SHIPPED_ETC).join("system\\default\\conf.conf"));
}

void ConfRoot::write(const Str &name, std::string_view content) const
{
    const Pathname file = *this / name;
    EXPECT_TRUE(makeDirs(file.dirname(), true));
    writeWhole(file, content);
}

ConfPath ConfRoot::at(const Str &address, const ConfUserContext &identity) const
{
    StrVector parts;
    StrSegment(address.view()).splitInto(parts, "/");
    return ConfPath(
        setup(), ConfPathBase(parts.at(1), parts.at(2), StrVector(parts.begin() + 3, parts.end())), identity);
}

IConfPathMapper &ConfRoot::mapperOf(const Str &file) const
{
    IConfPathMapper *const mapper = shared().mappers().mapperFor(*this / file);
    if (mapper == nullptr) {
        throw std::logic_error(file.c_str());
    }
    return *mapper;
}

Stanzas ConfRoot::stanzas(const char *type, const Str &app, const Str &user, DisabledMode mode) const
{
    Stanzas stanzas;
    pages(type, app, user).enumerateStanzasWithPrefix("", stanzas, mode);
    return stanzas;
}

Str ConfLog::text() const
{
    Str text = log_.text();
    text.replaceAll(root_, "ROOT");
    text.replaceAll("\\", "/");
    text.replaceAll(Str::fromFormat(".%lu.", GetCurrentProcessId()), ".PID.");
    replaceErrorTexts(text);
    removeTimes(text);
    return text;
}

Str ConfLog::told() const
{
    const Str all = text();
    Str kept;
    for (std::size_t from = 0; from < all.size();) {
        const std::size_t end = all.find('\n', from) + 1;
        const Str line = all.substr(from, end - from);
        kept << (line.startsWith("INFO IniFile: Renamed ") ? Str() : line);
        from = end;
    }
    return kept;
}

FileChangeAnswer noticeChange(IConfPathMapper &mapper, const Pathname &file)
{
    struct Notices : FilesystemChangeWatcher
    {
        Notices() : FilesystemChangeWatcher(Clock::system()) {}
        bool handleChange(WatchedFileState &) override { return true; }
    } notices;
    WatchedFileState state(notices, file, {}, WatchedFileState::kPollMs);
    return mapper.onFileChange(state);
}

ScopedHome::ScopedHome(const Pathname &home) : before_(environmentVariable(u"VELMOX_HOME"))
{
    set(home);
}

void ScopedHome::set(const WideStr &home)
{
    setEnvironmentVariable(u"VELMOX_HOME", home);
    LoaderInfo::instance()->readEnvironment();
}

} // namespace velmox::testing
