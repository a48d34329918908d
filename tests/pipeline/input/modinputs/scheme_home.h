#pragma once

#include "pipeline/input/modinputs/modular_inputs.h"

namespace velmox::testing {

/// An installation of a test's own: specs, scripts, a database folder, and a log of all that ModularInputs
/// says, each line behind its level.
class SchemeHome
{
public:
    SchemeHome();
    ~SchemeHome();

    Pathname path(const char *relative) const { return folder_ / relative; }
    /// `app` is a name; the system's folder for "system".
    AppFolder app(const char *name) const;
    void writeFile(const char *relative, std::string_view text) { write(path(relative), text); }
    void defineSchemes(const char *app, std::string_view spec);
    /// Puts a script that carries out a plan at a path below the installation, and gives its path.
    Pathname addScript(const char *relative, const Str &plan);

    /// A server with this installation that knows `stanzas` and collects messages; its app "disabled" is so.
    ModularInputsHost host();
    Stanzas stanzas;
    StrVector messages;

    Str log() const;
    bool logged(std::string_view text) const { return log().contains(text); }

private:
    void write(const Pathname &file, std::string_view text);

    ScopedFolder folder_;
};

} // namespace velmox::testing
