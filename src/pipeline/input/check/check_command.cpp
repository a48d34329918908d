#include "pipeline/input/check/check_command.h"

#include "util/log/logger.h"

#include <algorithm>
#include <cstdio>
#include <fcntl.h>
#include <io.h>
#include <nlohmann/json.hpp>

namespace velmox {

namespace {

constexpr int kClean = 0;
constexpr int kWarned = 1;
constexpr int kFaulty = 2;

/// By the number of the severity.
constexpr const char *kSeverities[] = {"note", "warning", "error"};

const char *nameOf(Severity severity)
{
    return kSeverities[static_cast<std::size_t>(severity)];
}

Str counted(std::size_t count, const char *what)
{
    return Str() << count << ' ' << what << (count == 1 ? "" : "s");
}

std::size_t countOf(const Findings &findings, Severity severity)
{
    return static_cast<std::size_t>(std::ranges::count(findings, severity, &Finding::severity));
}

/// A message may quote a value that goes over several lines; whoever reads findings with a script takes one a
/// line.
Str onOneLine(const Str &text)
{
    Str line = text;
    line.replaceAll("\n", "\\n");
    line.replaceAll("\r", "\\r");
    return line;
}

/// As compilers put it: `FILE:LINE: error: [STANZA] KEY: MESSAGE (CODE)`.
Str textOf(const Finding &finding)
{
    Str text;
    text << finding.place.file << ':' << finding.place.line << ": " << nameOf(finding.severity) << ": ["
         << finding.stanza << "] ";
    if (!finding.key.empty()) {
        text << finding.key << ": ";
    }
    text << finding.message << " (" << finding.code << ')';
    return onOneLine(text);
}

/// One object, without a line end.
Str jsonOf(const Finding &finding)
{
    nlohmann::ordered_json object;
    object["file"] = std::string(finding.place.file);
    object["line"] = finding.place.line;
    object["stanza"] = std::string(finding.stanza);
    object["key"] = std::string(finding.key);
    object["severity"] = nameOf(finding.severity);
    object["code"] = finding.code;
    object["message"] = std::string(finding.message);
    // A value may hold bytes that are no UTF-8, at which the library would throw.
    return object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

/// How many findings there are of each kind, for the last line.
Str countedText(const Findings &findings, std::size_t stanzas, bool withNotes)
{
    Str text = counted(countOf(findings, Severity::Error), "error");
    text << ", " << counted(countOf(findings, Severity::Warning), "warning");
    const std::size_t notes = countOf(findings, Severity::Note);
    if (withNotes) {
        text << ", " << counted(notes, "note");
    }
    text << " in " << counted(stanzas, "stanza");
    if (!withNotes && notes > 0) {
        text << "; --notes shows " << counted(notes, "note");
    }
    return text;
}

bool has(const Findings &findings, Severity severity)
{
    return countOf(findings, severity) > 0;
}

void print(const Findings &findings, const CheckOptions &options)
{
    for (const Finding &finding : findings) {
        if (finding.severity != Severity::Note || options.notes) {
            const Str line = options.json ? jsonOf(finding) : textOf(finding);
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
        // Lines for programs end in LF, on Windows too.
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
