#pragma once

#include "pipeline/input/modinputs/modular_inputs.h"
#include "util/thread/thread.h"

namespace velmox {

/// Does the work of `print-modinput-config`: puts together what a scheme's script gets on standard input.
///
/// Start it, join it, then ask. `inputs` must have its schemes, and no one else may use it meanwhile.
class ModinputsHelperThread : public Thread
{
public:
    /// `stanza` is `scheme://name` or the name alone; none for a scheme with one instance for all stanzas.
    ModinputsHelperThread(const ModularInputs &inputs, const Str &scheme, const std::optional<Str> &stanza);
    ~ModinputsHelperThread() noexcept(false) override { joinOrCancel(); }

    /// The document, or nothing.
    const std::optional<Str> &document() const { return document_; }
    /// What was wrong if there is no document.
    const Str &error() const { return error_; }

private:
    void main() override;
    void printConfiguration();
    std::optional<Str> fullStanzaName() const;

    const ModularInputs &inputs_;
    const Str scheme_;
    const std::optional<Str> stanza_;
    std::optional<Str> document_;
    Str error_;
};

} // namespace velmox
