#pragma once

#include "util/text/base_exception.h"

#include <map>

namespace velmox {

/// A placeholder that cannot be filled in.
class PlaceholderException : public BaseException
{
public:
    using BaseException::BaseException;
};

using PlaceholderVariables = std::map<Str, Str>;

/// Fills in a template: `$name$`, or `$name{option=value,...}$`, stands for a variable's value, and `$$` for
/// one dollar sign. Two placeholders that touch are none, since their dollar signs are doubled.
///
///     default     what stands for a variable that there is none of; empty
///     required    "yes": it is an error that there is none
///     recurse     "no": placeholders in the value stay as they are; a value is a template itself
///     key_regex   all variables whose whole name the expression matches
///     format      each of several variables, `$KEY` its name and `$VAL` its value; "$KEY=$VAL"
///     delim       what stands between them; a comma
///
/// In a name `*` stands for any text and `#` for digits: the placeholder is then for all variables that
/// match, by name. An option's value may be quoted, and must be when it holds a comma. Throws
/// PlaceholderException.
Str expandPlaceholders(const Str &text, const PlaceholderVariables &variables);

/// The template that expands to just this text.
Str placeholderLiteral(const Str &text);

} // namespace velmox
