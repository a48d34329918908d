#include "util/crash/invalid_parameter.h"

#include "util/log/logger.h"
#include "util/system/library_routine.h"
#include "util/system/windows_api.h"

#include <cstdint>
#include <cstdlib>

namespace velmox {

namespace {

Logger backtracerLogger("Backtracer");

void appendPart(Str &parts, const char *label, const wchar_t *text)
{
    if (text == nullptr) {
        return; // release builds of the library tell nothing
    }
    if (!parts.empty()) {
        parts << " ";
    }
    parts << label << asUtf16(text) << "'";
}

void logInvalidParameter(const wchar_t *expression, const wchar_t *function, const wchar_t *file,
                         unsigned line, std::uintptr_t)
{
    Str parts;
    appendPart(parts, "Expression='", expression);
    appendPart(parts, "Function='", function);
    appendPart(parts, "File='", file);
    backtracerLogger.error("%s Line='%d'", parts.c_str(), static_cast<int>(line));
}

} // namespace

// By name, for what the linker finds for msvcrt.dll is a stand-in that tells the library nothing. A library
// without the routine deals with bad arguments in its own way, and nothing of them is logged.
void logInvalidParameters()
{
    for (const wchar_t *name : {L"msvcrt.dll", L"ucrtbase.dll"}) {
        decltype(_set_invalid_parameter_handler) *setHandler = nullptr;
        const HMODULE library = GetModuleHandleW(name);
        if (library != nullptr && findRoutine(library, "_set_invalid_parameter_handler", setHandler)) {
            setHandler(logInvalidParameter);
        }
    }
}

} // namespace velmox
