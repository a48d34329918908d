#include "tests/pipeline/input/modinputs/scheme_home.h"

#include "tests/support/child_process.h"
#include "tests/support/main_thread.h"
#include "util/files/file_system.h"
#include "util/log/log_system.h"
#include "util/log/logger.h"

#include <gtest/gtest.h>

namespace velmox::testing {

SchemeHome::SchemeHome()
{
    ensureMainThread();
    const Str logFile = path("log").toStr();
    const Str config = Str::fromFormat("rootCategory=DEBUG,file\nappender.file.fileName=%s\n"
                                       "appender.file.layout=PatternLayout\n"
                                       "appender.file.layout.ConversionPattern=%%p %%m%%n\n",
                                       logFile.c_str());
    write(path("log.cfg"), config);
    Logger::loadConfig(path("log.cfg"), nullptr, {}, true);
}

SchemeHome::~SchemeHome()
{
    LogSystem::instance().reset(nullptr);
    LogSystem::instance().bindAll();
}

AppFolder SchemeHome::app(const char *name) const
{
    const bool isSystem = std::string_view(name) == AppFolder::kSystem;
    const Pathname etc = path("etc");
    return {name, isSystem ? etc.join(name) : etc.join("apps").join(name)};
}

void SchemeHome::defineSchemes(const char *appName, std::string_view spec)
{
    write(app(appName).path.join("README").join("inputs.conf.spec"), spec);
}

Pathname SchemeHome::addScript(const char *relative, const Str &plan)
{
    const Pathname script = path(relative);
    const Pathname program = Pathname::fromUtf8(programFolder()).concat("script_child.exe");
    write(script.concat(".plan"), plan);
    EXPECT_TRUE(CopyFileW(asWide(program), asWide(script), FALSE)) << script.toStr().c_str();
    return script;
}

ModularInputsHost SchemeHome::host()
{
    ModularInputsHost host;
    host.context = ProcessContext::Server;
    host.home = path("");
    host.systemDir = path("etc\\system");
    host.appParents = {path("etc\\apps"), path("etc\\slave-apps")};
    host.db = path("db");
    host.server = {"here", "https://127.0.0.1:8089", "key"};
    host.isAppUsable = [](const Str &name) { return name != "disabled"; };
    host.enabledStanzas = [this](const Str &prefix) {
        Stanzas found;
        for (const auto &[name, stanza] : stanzas) {
            if (name.startsWith(prefix.view())) {
                found[name] = stanza;
            }
        }
        return found;
    };
    host.showMessage = [this](const char *key, const Str &text) {
        messages.push_back(Str::fromFormat("%s %s", key, text.c_str()));
    };
    return host;
}

Str SchemeHome::log() const
{
    Str text = readWhole(path("log"));
    text.replaceAll("\r\n", "\n");
    return text;
}

void SchemeHome::write(const Pathname &file, std::string_view text)
{
    EXPECT_TRUE(makeDirs(file.dirname(), true));
    writeWhole(file, text);
}

} // namespace velmox::testing
