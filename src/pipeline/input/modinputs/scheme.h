#pragma once

#include "pipeline/input/modinputs/script_command.h"

#include <map>
#include <set>

namespace velmox {

/// A folder of configuration that may define schemes and hold their scripts: an app's or the system's.
struct AppFolder
{
    static constexpr char kSystem[] = "system";

    Str name;
    Pathname path;

    bool isSystem() const { return name == kSystem; }
};

/// What a file inputs.conf.spec says of one scheme: who defines it, and the keys of its stanzas.
struct SchemeSpec
{
    Str name;
    AppFolder app;
    std::set<Str> parameters;
};

enum class StreamingMode
{
    Simple,
    Xml
};

/// One setting of a scheme as its script declares it.
struct SchemeArgument
{
    Str title;
    Str description;
    bool required_on_create = false;
    bool required_on_edit = false;
    Str validation;
    Str list_delimiter;
    /// "string", "number" or "boolean".
    Str data_type = "string";
};

/// A scheme that is ready for use.
struct Scheme
{
    /// What stands before the `://` of its stanzas.
    Str name;
    Str title;
    Str description;
    ScriptCommand script;
    /// One process serves all stanzas.
    bool useSingleInstance = false;
    /// The script judges proposed configurations.
    bool useExternalValidation = false;
    StreamingMode streamingMode = StreamingMode::Simple;
    std::map<Str, SchemeArgument> args;
};

/// How a stanza of the scheme begins.
Str stanzaPrefix(const Str &scheme);

/// Whether the server handles a key of this name itself, in stanzas of every scheme.
bool isInternalArgument(const Str &name);

} // namespace velmox
