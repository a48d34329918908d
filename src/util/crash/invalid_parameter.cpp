#include "util/crash/invalid_parameter.h"

#include "util/log/logger.h"
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

void logInvalidParameters()
{
    _set_invalid_parameter_handler(logInvalidParameter);
}

} // namespace velmox
