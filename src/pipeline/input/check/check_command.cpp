#include "pipeline/input/check/check_command.h"

#include "util/log/logger.h"

#include <algorithm>
#include <cstdio>
#include <fcntl.h>
#include <io.h>

namespace velmox {

namespace {

constexpr int kClean = 0;
constexpr int kWarned = 1;
constexpr int kFaulty = 2;

void print(const Findings &findings, const CheckOptions &options)
{
    for (const Finding &finding : findings) {
        if (finding.severity != Severity::Note || options.notes) {
            const Str line = options.json ? finding.toJson() : finding.toText();
            std::printf("%s\n", line.c_str());
        }
    }
}

std::size_t countOfScheme(const ConfiguredStanzas &stanzas, const Str &scheme)
{
    return static_cast<std::size_t>(std::ranges::count_if(
        stanzas, [&](const ConfiguredStanza &stanza) { return isOfScheme(stanza, scheme); }));
}

} // namespace

std::optional<CheckOptions> readCheckOptions(const StrVector &arguments)
{
    CheckOptions options;
    bool hasScheme = false;
    for (const Str &argument : arguments) {
        if (argument == "--json") {
            options.json = true;
        } else if (argument == "--strict") {
            options.strict = true;
        } else if (argument == "--notes") {
            options.notes = true;
        } else if (argument.startsWith("-") || hasScheme) {
            return std::nullopt;
        } else {
            options.scheme = argument;
            hasScheme = true;
        }
    }
    return options;
}

int runCheck(const CheckOptions &options, CheckRequest request)
{
    // What the monitor would log of the stanzas is said here in other words.
    Logger::setThreshold("velmox-regmon", LogLevel::Emerg);
    const ConfiguredStanzas stanzas = readConfiguredStanzas("inputs");
    const Findings findings = checkStanzas(stanzas, request);
    if (options.json) {
        _setmode(_fileno(stdout), _O_BINARY);
    }
    print(findings, options);
    if (!options.json) {
        const std::size_t count = countOfScheme(stanzas, options.scheme);
        std::printf("%s\n", countedText(findings, count, options.notes).c_str());
    }
    if (std::fflush(stdout) != 0) {
        std::fputs("Unable to write to standard output.\n", stderr);
        return kFaulty;
    }
    if (has(findings, Severity::Error)) {
        return kFaulty;
    }
    return options.strict && has(findings, Severity::Warning) ? kWarned : kClean;
}

} // namespace velmox
