#pragma once

#include "pipeline/input/rules/hive_names.h"

#include <vector>

namespace velmox {

/// A backslash before a letter or a digit, in a pattern as it is written.
struct LetterEscape
{
    /// Of the backslash.
    std::size_t position;
    char letter;
    /// Between brackets, where nothing separates.
    bool isInClass;
    /// Whether a name stands before, and not another escape's letter.
    bool followsName;
};

/// In their order, without doubled backslashes.
std::vector<LetterEscape> letterEscapes(const Str &pattern);

/// Whether the backslash was likely meant to separate two names, as in `HKLM\Software`. A guess, from what
/// stands around it and from whether the pattern has doubled backslashes.
bool isLikelySeparator(const Str &pattern, const LetterEscape &escape, const HiveNames &hiveNames);

/// Whether there is such a backslash.
bool hasLikelySeparator(const Str &pattern, const HiveNames &hiveNames);

/// Of one that was likely meant to separate: whether it may have been meant as an escape all the same, as in
/// `.*\Bhost`. Both are worth a word then.
bool isPerhapsMeant(const Str &pattern, const LetterEscape &escape, const HiveNames &hiveNames);

/// The escape with the word that follows, to be shown.
Str escapedWord(const Str &pattern, const LetterEscape &escape);

/// What to write for an escape in a capital letter that the fold makes into another one; null for one that it
/// does not.
const char *insteadOfFolded(const LetterEscape &escape);

} // namespace velmox
