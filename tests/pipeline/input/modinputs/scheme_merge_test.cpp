#include "pipeline/input/modinputs/scheme_merge.h"
#include "pipeline/input/modular_inputs_exception.h"

#include <gtest/gtest.h>

namespace velmox {
namespace {

const SchemeSpec kSpec{"mine", {"app", u"C:\\app"}, {"host", "proc"}};

ScriptCommand findMine(const ScriptName &script)
{
    return script.file == "my.py" ? ScriptCommand{u"C:\\app\\bin\\my.py", script.arguments} : ScriptCommand{};
}

Scheme merge(const Introspection &introspection)
{
    Scheme scheme;
    scheme.name = kSpec.name;
    scheme.script.file = u"C:\\app\\bin\\mine.exe";
    mergeIntrospection(introspection, kSpec, findMine, scheme);
    return scheme;
}

Str complaint(const Introspection &introspection)
{
    try {
        merge(introspection);
        return "none";
    } catch (const ModularInputsException &exception) {
        return exception.message();
    }
}

TEST(SchemeMerge, TakesWhatTheScriptSays)
{
    Introspection said;
    said.scheme = {{"title", "T"},
                   {"description", "D"},
                   {"script", "my.py --flag C:/x"},
                   {"use_single_instance", "true"},
                   {"use_external_validation", "Yes"},
                   {"streaming_mode", "xml"},
                   {"unknown", "passed over"}};
    said.args["proc"] = {{"title", "P"},
                         {"required_on_create", "1"},
                         {"required_on_edit", "f"},
                         {"list_delimiter", ","},
                         {"data_type", "boolean"}};
    const Scheme scheme = merge(said);
    EXPECT_EQ(scheme.title, "T");
    EXPECT_EQ(scheme.description, "D");
    EXPECT_EQ(scheme.script.commandLine(), "python C:\\app\\bin\\my.py --flag C:/x");
    EXPECT_TRUE(scheme.useSingleInstance);
    EXPECT_TRUE(scheme.useExternalValidation);
    EXPECT_EQ(scheme.streamingMode, StreamingMode::Xml);
    const SchemeArgument &proc = scheme.args.at("proc");
    EXPECT_EQ(proc.title, "P");
    EXPECT_TRUE(proc.required_on_create);
    EXPECT_FALSE(proc.required_on_edit);
    EXPECT_EQ(proc.list_delimiter, ",");
    EXPECT_EQ(proc.data_type, "boolean");
    said.scheme["streaming_mode"] = "simple";
    EXPECT_EQ(merge(said).streamingMode, StreamingMode::Simple);
}

TEST(SchemeMerge, KeepsTheRestWhereTheScriptSaysNothing)
{
    const Scheme scheme = merge({});
    EXPECT_EQ(scheme.script.text(), "C:\\app\\bin\\mine.exe");
    EXPECT_FALSE(scheme.useSingleInstance);
    EXPECT_FALSE(scheme.useExternalValidation);
    EXPECT_EQ(scheme.streamingMode, StreamingMode::Simple);
    EXPECT_TRUE(scheme.args.empty());
}

TEST(SchemeMerge, RefusesBadSettingsOfTheScheme)
{
    constexpr char kNoFolder[] = "The \"script\" value from introspection can only be a file name, no "
                                 "directory can be specified with it.  Command line arguments are allowed.  "
                                 "(Specified \"%s\")";
    constexpr char kBadMode[] = "When introspecting the scheme \"mine\", we found an invalid "
                                "\"streaming_mode\" value specified (\"%s\").  The only valid values are "
                                "\"simple\" and \"xml\".";
    constexpr char kNoScript[] =
        "The \"script\" value from introspection (\"%s\") did not refer to a suitable "
        "script on the file system.";
    constexpr char kNoBool[] = "Introspection parameter \"use_single_instance\" contained invalid data: "
                               "\"%s\".  Expected a true or false value.";
    struct Row
    {
        const char *name;
        const char *value;
        const char *complaint;
    };
    for (const Row &row :
         {Row{"script", "sub/my.py", kNoFolder}, Row{"script", "sub\\my.py -x", kNoFolder},
          Row{"script", " C:my.py", kNoFolder}, Row{"script", "other.py --flag", kNoScript},
          Row{"streaming_mode", "XML", kBadMode}, Row{"streaming_mode", " xml", kBadMode},
          Row{"use_single_instance", "maybe", kNoBool}, Row{"use_single_instance", "2", kNoBool}}) {
        Introspection said;
        said.scheme[row.name] = row.value;
        Str expected = row.complaint;
        expected.replaceAll("%s", row.value);
        EXPECT_EQ(complaint(said), expected);
    }
}

TEST(SchemeMerge, RefusesBadArguments)
{
    struct Row
    {
        const char *name;
        Introspection::Texts texts;
        const char *complaint;
    };
    const Row rows[] = {
        {"hive",
         {},
         "Endpoint argument \"hive\" has not been defined in the inputs.conf.spec file.  All args "
         "defined via introspection must also be defined in the spec file."},
        {"host",
         {},
         "Endpoint argument \"host\" is an internal argument that is handled specially within "
         "Velmox, and it should not be defined via introspection."},
        {"proc",
         {{"data_type", "String"}},
         "The \"data_type\" value from introspection (\"String\") did not refer to a proper data type.  The "
         "following data types are supported: \"string\", \"number\" and \"boolean\"."},
        {"proc",
         {{"required_on_edit", "often"}},
         "Introspection parameter \"required_on_edit\" contained invalid data: \"often\".  Expected a true "
         "or false value."},
    };
    for (const Row &row : rows) {
        Introspection said;
        said.args[row.name] = row.texts;
        EXPECT_EQ(complaint(said), row.complaint);
    }
}

TEST(ScriptCommand, QuotesAPathWithBlanks)
{
    const ScriptCommand program{u"C:\\my apps\\a.exe", "-x"};
    EXPECT_EQ(program.commandLine(), "\"C:\\my apps\\a.exe\" -x");
    EXPECT_EQ(program.text(), "C:\\my apps\\a.exe -x");
    EXPECT_EQ((ScriptCommand{u"C:\\my apps\\a.PY", ""}.commandLine()), "python \"C:\\my apps\\a.PY\"");
}

} // namespace
} // namespace velmox
