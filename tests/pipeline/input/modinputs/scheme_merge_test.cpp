#include "pipeline/input/diagnostics/modular_inputs_exception.h"
#include "pipeline/input/modinputs/scheme_merge.h"

#include <gtest/gtest.h>

namespace velmox {
namespace {

const SchemeSpec kSpec{"mine", {"app", u"C:\\app"}, {"host", "proc"}};

Scheme merge(const Introspection &introspection)
{
    Scheme scheme;
    scheme.name = kSpec.name;
    scheme.script.file = u"C:\\app\\bin\\mine.exe";
    const auto findMine = [](const ScriptName &script) {
        return script.file == "my.py" ? ScriptCommand{u"C:\\app\\bin\\my.py", script.arguments}
                                      : ScriptCommand{};
    };
    mergeIntrospection(introspection, kSpec, findMine, scheme);
    return scheme;
}

TEST(SchemeMerge, TakesWhatTheScriptSaysAndKeepsTheRest)
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
    EXPECT_TRUE(scheme.useSingleInstance && scheme.useExternalValidation);
    EXPECT_EQ(scheme.streamingMode, StreamingMode::Xml);
    const SchemeArgument &proc = scheme.args.at("proc");
    EXPECT_EQ(proc.title, "P");
    EXPECT_TRUE(proc.required_on_create && !proc.required_on_edit);
    EXPECT_EQ(proc.list_delimiter, ",");
    EXPECT_EQ(proc.data_type, "boolean");
    said.scheme["streaming_mode"] = "simple";
    EXPECT_EQ(merge(said).streamingMode, StreamingMode::Simple);

    const Scheme silent = merge({});
    EXPECT_EQ(silent.script.text(), "C:\\app\\bin\\mine.exe");
    EXPECT_FALSE(silent.useSingleInstance || silent.useExternalValidation);
    EXPECT_EQ(silent.streamingMode, StreamingMode::Simple);
    EXPECT_TRUE(silent.args.empty());
}

TEST(SchemeMerge, RefusesBadSettings)
{
    const std::string noFolder = "The \"script\" value from introspection can only be a file name, no "
                                 "directory can be specified with it.  "
                                 "Command line arguments are allowed.  (Specified \"VALUE\")";
    const std::string noScript =
        "The \"script\" value from introspection (\"VALUE\") did not refer to a suitable "
        "script on the file system.";
    const std::string badMode = "When introspecting the scheme \"mine\", we found an invalid "
                                "\"streaming_mode\" value specified (\"VALUE\").  "
                                "The only valid values are \"simple\" and \"xml\".";
    const std::string noBool =
        "Introspection parameter \"KEY\" contained invalid data: \"VALUE\".  Expected a true or false value.";
    const std::string noType = "The \"data_type\" value from introspection (\"VALUE\") did not refer to a "
                               "proper data type.  The following "
                               "data types are supported: \"string\", \"number\" and \"boolean\".";
    const struct
    {
        const char *arg, *key, *value; // of the scheme itself without an argument
        std::string complaint;
    } rows[] = {
        {nullptr, "script", "sub/my.py", noFolder},
        {nullptr, "script", "sub\\my.py -x", noFolder},
        {nullptr, "script", " C:my.py", noFolder},
        {nullptr, "script", "other.py --flag", noScript},
        {nullptr, "streaming_mode", "XML", badMode},
        {nullptr, "streaming_mode", " xml", badMode},
        {nullptr, "use_single_instance", "maybe", noBool},
        {nullptr, "use_external_validation", "2", noBool},
        {"hive", "title", "",
         "Endpoint argument \"hive\" has not been defined in the inputs.conf.spec file.  All args defined "
         "via "
         "introspection must also be defined in the spec file."},
        {"host", "title", "",
         "Endpoint argument \"host\" is an internal argument that is handled specially within Velmox, and it "
         "should "
         "not be defined via introspection."},
        {"proc", "data_type", "String", noType},
        {"proc", "required_on_create", "often", noBool},
        {"proc", "required_on_edit", "often", noBool},
    };
    for (const auto &row : rows) {
        Introspection said;
        (row.arg == nullptr ? said.scheme : said.args[row.arg])[row.key] = row.value;
        Str expected = row.complaint.c_str();
        expected.replaceAll("KEY", row.key);
        expected.replaceAll("VALUE", row.value);
        try {
            merge(said);
            ADD_FAILURE() << expected.c_str();
        } catch (const ModularInputsException &exception) {
            EXPECT_EQ(exception.message(), expected);
        }
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
