#include "pipeline/input/program/scheme_script.h"

#include "pipeline/input/xml/xml_entity.h"
#include "util/match/regex.h"
#include "util/text/str_segment.h"

namespace velmox {

// One process serves all stanzas, since there is one driver, which takes one filter. Arguments are those of
// the monitor's stanzas that the server does not handle itself.
const char kSchemeDescription[] = R"(<scheme>
  <title>Windows registry monitoring</title>
  <description>Reports changes of the registry, and what stands in it at the start.</description>
  <use_single_instance>true</use_single_instance>
  <use_external_validation>true</use_external_validation>
  <streaming_mode>xml</streaming_mode>
  <endpoint>
    <args>
      <arg name="proc">
        <title>Processes</title>
        <description>Regular expression over the path of the process image. All processes by default.</description>
      </arg>
      <arg name="hive">
        <title>Keys</title>
        <description>A key, or a regular expression over the paths of keys. All keys by default.</description>
      </arg>
      <arg name="type">
        <title>Operations</title>
        <description>The kinds of operation, separated by vertical bars.</description>
        <list_delimiter>|</list_delimiter>
      </arg>
      <arg name="baseline">
        <title>Baseline</title>
        <description>Whether to report at the start what stands in the registry.</description>
        <data_type>boolean</data_type>
      </arg>
      <arg name="baseline_interval">
        <title>Baseline interval</title>
        <description>The least number of seconds between baselines.</description>
        <data_type>number</data_type>
      </arg>
    </args>
  </endpoint>
</scheme>
)";

namespace {

/// Each gives what is wrong with a value, or nothing.
using Check = Str (*)(const Str &value);

/// Compiled as the monitor compiles it, but without what makes it faster.
Str compilerFault(const Str &pattern)
{
    try {
        Regex().compile(pattern, false, 0);
        return {};
    } catch (const RegexException &exception) {
        return Str::concat("is no regular expression: ", exception.message());
    }
}

// The monitor compiles patterns in lower case.
Str checkPattern(const Str &value)
{
    return compilerFault(value.lowered());
}

// What the monitor asks of the driver it makes of the pieces between the bars, each by itself and as written.
Str checkTypes(const Str &value)
{
    StrVector patterns = {value.lowered()};
    StrSegment(value).splitInto(patterns, "|");
    Str fault;
    for (const Str &pattern : patterns) {
        if (fault.empty()) {
            fault = compilerFault(pattern);
        }
    }
    return fault;
}

Str checkBool(const Str &value)
{
    bool ignored = false;
    return value.toBool(ignored) ? "" : "is neither true nor false";
}

Str checkSeconds(const Str &value)
{
    std::uint64_t seconds = 0;
    return StrSegment(value).parseUnsigned(seconds) ? "" : "is no number of seconds";
}

struct CheckedKey
{
    const char *key;
    Check check;
};

constexpr CheckedKey kCheckedKeys[] = {
    {"proc", checkPattern},  {"hive", checkPattern},  {"type", checkTypes},
    {"disabled", checkBool}, {"baseline", checkBool}, {"baseline_interval", checkSeconds},
};

// The first fault ends the search: whoever proposes a stanza mends one thing at a time.
Str findFault(const Str &name, const PropertiesMap &stanza)
{
    if (!name.lowered().startsWith("winregmon:")) {
        return Str::fromFormat("The stanza \"%s\" does not begin with WinRegMon://.", name.c_str());
    }
    for (const auto &[key, check] : kCheckedKeys) {
        Str value;
        const Str fault = stanza.tryGet(key, value) ? check(value) : Str();
        if (!fault.empty()) {
            return Str::fromFormat("The value \"%s\" of %s in the stanza \"%s\" %s.", value.c_str(), key,
                                   name.c_str(), fault.c_str());
        }
    }
    return {};
}

} // namespace

Str findFault(const Stanzas &stanzas)
{
    for (const auto &[name, stanza] : stanzas) {
        Str fault = findFault(name, stanza);
        if (!fault.empty()) {
            return fault;
        }
    }
    return {};
}

Str faultDocument(const Str &fault)
{
    return Str::fromFormat("<error><message>%s</message></error>\n", escapedXmlText(fault).c_str());
}

} // namespace velmox
