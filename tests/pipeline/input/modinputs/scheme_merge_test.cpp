#include "pipeline/input/diagnostics/diagnostics.h"
#include "pipeline/input/modinputs/introspection.h"

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
    EXPECT_EQ(Str::concat(proc.list_delimiter, proc.data_type), ",boolean");
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
    const char *noFolder = "can only be a file name, no directory can be specified";
    const char *noBool = "Expected a true or false value.";
    const struct
    {
        const char *arg, *key, *value; // of the scheme itself without an argument
        const char *complaint;
    } rows[] = {
        {nullptr, "script", "sub\\my.py -x", noFolder},
        {nullptr, "script", " C:my.py", noFolder},
        {nullptr, "script", "other.py --flag", "did not refer to a suitable script on the file system."},
        {nullptr, "streaming_mode", "XML", "The only valid values are \"simple\" and \"xml\"."},
        {nullptr, "use_single_instance", "maybe", noBool},
        {nullptr, "use_external_validation", "2", noBool},
        {"hive", "title", "", "\"hive\" has not been defined in the inputs.conf.spec file."},
        {"host", "title", "", "\"host\" is an internal argument that is handled specially"},
        {"proc", "data_type", "String", "did not refer to a proper data type."},
        {"proc", "required_on_create", "often", noBool},
    };
    for (const auto &row : rows) {
        Introspection said;
        (row.arg == nullptr ? said.scheme : said.args[row.arg])[row.key] = row.value;
        const Str complaint = raisedBy<ModularInputsException>([&] { merge(said); });
        EXPECT_TRUE(complaint.contains(row.complaint)) << complaint.c_str();
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
