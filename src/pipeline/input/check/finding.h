#pragma once

#include "pipeline/input/check/configured_stanza.h"

namespace velmox {

enum class Severity
{
    Note,
    Warning,
    Error,
};

/// One thing that is wrong with a stanza, or likely to be.
struct Finding
{
    /// Of the line that is to be changed.
    ConfPlace place;
    /// The stanza in whose section that line stands: "default" for an inherited setting.
    Str stanza;
    /// Empty when it is about the stanza as a whole.
    Str key;
    Severity severity = Severity::Warning;
    /// What people search for, such as "bad-pattern".
    std::string_view code;
    /// One line.
    Str message;

    /// As compilers put it: `FILE:LINE: error: [STANZA] KEY: MESSAGE (CODE)`.
    Str toText() const;
    /// One object, without a line end.
    Str toJson() const;
};

using Findings = std::vector<Finding>;

/// The findings in the order of their places, without the same one twice: stanzas inherit from one section.
Findings inOrder(Findings findings);

/// How many findings there are of each kind, for the last line.
Str countedText(const Findings &findings, std::size_t stanzas, bool withNotes);

bool has(const Findings &findings, Severity severity);

} // namespace velmox
