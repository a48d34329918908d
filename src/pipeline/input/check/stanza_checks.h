#pragma once

#include "pipeline/input/check/check.h"
#include "pipeline/input/check/checked_stanza.h"

namespace velmox {

/// What a check looks at: one stanza among all.
struct StanzaAtHand
{
    const CheckRequest &request;
    const CheckedStanzas &all;
    const CheckedStanza &checked;

    const ConfiguredStanza &stanza() const { return *checked.stanza; }
    Str value(const char *key) const { return stanza().value(key); }
    /// Only where the table says that the check needs them.
    const StanzaRules &rules() const { return *checked.rules; }
};

/// Takes down what one check finds in one stanza.
class Report
{
public:
    Report(std::string_view code, Severity severity, const ConfiguredStanza &stanza, Findings &findings)
        : code_(code), severity_(severity), stanza_(stanza), findings_(findings)
    {
    }

    /// `key` is empty for what concerns the stanza as a whole; so is the line of a key that it does not have.
    void add(const Str &key, const Str &message) { add(severity_, key, message); }
    void add(Severity severity, const Str &key, const Str &message);
    /// At a line that need not be one that counts. `section` is the stanza that has the line.
    void addAt(const ConfPlace &place, const Str &section, const Str &key, const Str &message);

private:
    const std::string_view code_;
    const Severity severity_;
    const ConfiguredStanza &stanza_;
    Findings &findings_;
};

/// Whether quotes or a remark are part of a value, so that what follows from that is not worth a word.
bool hasQuotesOrRemark(const Str &value);

// Each function finds what its code in the table of check.cpp says; docs/administrator.md, "Traps", explains
// the codes.

// Of settings as texts (setting_checks.cpp).
void checkBooleans(const StanzaAtHand &at, Report &report);
void checkNumbers(const StanzaAtHand &at, Report &report);
void checkUnknownKeys(const StanzaAtHand &at, Report &report);
void checkSwallowedLines(const StanzaAtHand &at, Report &report);
/// A header of the scheme that a stanza of another one takes in.
void checkSwallowedHeaders(const StanzaAtHand &at, Report &report);
void checkQuotes(const StanzaAtHand &at, Report &report);
void checkComments(const StanzaAtHand &at, Report &report);
/// `[WinRegMon:///x]`, whose name is `/x`.
void checkNameStart(const StanzaAtHand &at, Report &report);
/// `[winregmon://x]` and the like, which nothing reads.
void checkSchemeSpelling(const StanzaAtHand &at, Report &report);
void checkMissingHive(const StanzaAtHand &at, Report &report);
/// A name that its checkpoint file cannot have.
void checkName(const StanzaAtHand &at, Report &report);

// Of patterns by themselves (pattern_checks.cpp).
void checkPatterns(const StanzaAtHand &at, Report &report);
void checkTypes(const StanzaAtHand &at, Report &report);
void checkSingleBackslash(const StanzaAtHand &at, Report &report);
void checkFoldedEscape(const StanzaAtHand &at, Report &report);
/// A pattern that ends at a key and leaves out all below it.
void checkTail(const StanzaAtHand &at, Report &report);
void checkPlainPath(const StanzaAtHand &at, Report &report);
/// Dots, which do not meet the line end that a name can hold.
void checkLineEnd(const StanzaAtHand &at, Report &report);
/// A pattern for what lies below a key that leaves out the key.
void checkKeyItself(const StanzaAtHand &at, Report &report);
void checkExplosive(const StanzaAtHand &at, Report &report);

// Of what the registry, the driver and other stanzas make of them (effect_checks.cpp).
void checkHiddenControlSet(const StanzaAtHand &at, Report &report);
/// The current control set, whose live events carry no stanza.
void checkUnnamedControlSet(const StanzaAtHand &at, Report &report);
void checkCurrentConfig(const StanzaAtHand &at, Report &report);
/// Capitals in `type`: the filter folds them, what the driver is asked for does not.
void checkTypeCase(const StanzaAtHand &at, Report &report);
void checkBaselineStart(const StanzaAtHand &at, Report &report);
void checkBaselineRoot(const StanzaAtHand &at, Report &report);
/// Events that another stanza with a longer `hive` gives its name to.
void checkTakenName(const StanzaAtHand &at, Report &report);
void checkMatchesNothing(const StanzaAtHand &at, Report &report);
/// A path that 32-bit programs get elsewhere.
void checkWow64(const StanzaAtHand &at, Report &report);

} // namespace velmox
