#include "pipeline/input/check/finding.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <tuple>

namespace velmox {

namespace {

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

/// A message may quote a value that goes over several lines.
Str onOneLine(const Str &text)
{
    Str line = text;
    line.replaceAll("\n", "\\n");
    line.replaceAll("\r", "\\r");
    return line;
}

} // namespace

Str Finding::toText() const
{
    Str text;
    text << place.file << ':' << place.line << ": " << nameOf(severity) << ": [" << stanza << "] ";
    if (!key.empty()) {
        text << key << ": ";
    }
    text << message << " (" << code << ')';
    return onOneLine(text);
}

Str Finding::toJson() const
{
    nlohmann::ordered_json object;
    object["file"] = std::string(place.file);
    object["line"] = place.line;
    object["stanza"] = std::string(stanza);
    object["key"] = std::string(key);
    object["severity"] = nameOf(severity);
    object["code"] = code;
    object["message"] = std::string(message);
    return object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

Findings inOrder(Findings findings)
{
    const auto order = [](const Finding &finding) {
        return std::tie(finding.place.layer, finding.place.file, finding.place.line);
    };
    std::ranges::stable_sort(findings, {}, order);
    Findings once;
    for (Finding &finding : findings) {
        const auto isSame = [&](const Finding &other) {
            return order(other) == order(finding) && other.stanza == finding.stanza &&
                   other.key == finding.key && other.code == finding.code && other.message == finding.message;
        };
        if (std::ranges::none_of(once, isSame)) {
            once.push_back(std::move(finding));
        }
    }
    return once;
}

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

} // namespace velmox
