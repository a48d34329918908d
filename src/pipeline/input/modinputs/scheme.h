#pragma once

#include "util/text/pathname.h"
#include "util/text/str.h"

#include <map>
#include <set>

// The room `modinputs` is the server's side of input programs: it finds what is installed, asks scripts what
// they are, has them judge settings, and hands them the input document. This header has what the room works
// with: schemes, the scripts behind them, and where both are defined. Plain values; nothing here touches a
// disk.

namespace velmox {

/// What is told of a script before it is found: its file name, and its arguments.
struct ScriptName
{
    Str file;
    Str arguments;

    /// The arguments stand behind the first blank.
    static ScriptName fromText(const Str &text);
};

/// A script with the arguments that it gets on every start.
struct ScriptCommand
{
    Pathname file;
    Str arguments;

    bool empty() const { return file.empty(); }
    /// The path, and the arguments behind a blank.
    Str text() const;
    /// How it is started: a path with blanks in it is quoted, and a script of the extension `py` is an
    /// argument of `python`. More arguments go directly behind.
    Str commandLine() const;
};

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

/// One setting of a scheme as its script declares it. The names are those of the elements in which it does.
struct SchemeArgument
{
    Str title;
    Str description;
    bool required_on_create = false;
    bool required_on_edit = false;
    Str validation;
    /// What separates the values of a setting that is a list; empty for one that is none.
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
    /// What the script writes: lines of text, or events in XML.
    StreamingMode streamingMode = StreamingMode::Simple;
    std::map<Str, SchemeArgument> args;
};

/// How a stanza of the scheme begins.
Str stanzaPrefix(const Str &scheme);

/// The keys that the server handles itself, in stanzas of every scheme.
inline constexpr std::string_view kInternalArguments[] = {
    "disabled", "host", "index", "interval", "source", "sourcetype",
};

/// Whether the server handles a key of this name itself, in stanzas of every scheme.
bool isInternalArgument(const Str &name);

} // namespace velmox
