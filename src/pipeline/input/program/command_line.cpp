#include "pipeline/input/program/command_line.h"

#include "pipeline/input/diagnostics/diagnostics.h"
#include "util/system/windows_api.h"

#include <cwchar>
#include <string_view>

namespace velmox {

namespace {

/// One pass over the arguments. Options of later versions are passed over, so that a server may give them to
/// any.
class Scan
{
public:
    Scan(const wchar_t *const *arguments, CommandLine &out) : cursor_(arguments + 1), out_(out) {}

    bool run()
    {
        for (; *cursor_ != nullptr; ++cursor_) {
            // Each test sees the token that the one before has left, see the header.
            if (!watchOption() || !textOptions()) {
                return false;
            }
            out_.migrateSysmon = out_.migrateSysmon && !isAt(L"-disableSysmonMigrate");
            out_.migrateOnly = out_.migrateOnly || isAt(L"-migrateOnly");
        }
        return true;
    }

private:
    bool isAt(std::wstring_view option) const { return option == *cursor_; }

    bool advance() { return *++cursor_ != nullptr; }

    // The two watch options exclude each other: once one is accepted, the other is an unknown argument.
    bool watchOption()
    {
        if (!out_.dieWhenPidDies && isAt(L"-run-until-pid-dies")) {
            return readPid(out_.runUntilPidDies);
        }
        if (!out_.runUntilPidDies && isAt(L"-die-when-pid-dies")) {
            return readPid(out_.dieWhenPidDies);
        }
        return true;
    }

    bool readPid(bool &seen)
    {
        // What stands behind the digits counts for nothing.
        if (!advance() || swscanf_s(*cursor_, L"%u", &out_.parentPid) != 1) {
            return false;
        }
        seen = true;
        return true;
    }

    bool textOptions()
    {
        if (isAt(L"-index") && !readText(out_.index)) {
            return false;
        }
        if (isAt(L"-inclusive")) {
            Str value;
            if (!readText(value)) {
                return false;
            }
            // Anything but a plain 0 leaves the filters as they are without the option.
            out_.inclusive = value != "0";
        }
        return true;
    }

    bool readText(Str &value)
    {
        if (!advance()) {
            return false;
        }
        value = Str::fromUtf16(asUtf16(*cursor_));
        // Quotes that the caller's shell has left in the argument.
        value.unquote('"');
        return true;
    }

    const wchar_t *const *cursor_;
    CommandLine &out_;
};

} // namespace

bool scanCommandLine(const wchar_t *const *arguments, CommandLine &out)
{
    if (Scan(arguments, out).run()) {
        return true;
    }
    monitorLog.error("usage: %s [--path-driver <dir> | -run-until-pid-dies PID]",
                     Str::fromUtf16(asUtf16(arguments[0])).c_str());
    return false;
}

} // namespace velmox
