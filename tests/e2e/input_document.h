#pragma once

#include "util/text/str.h"

#include <utility>
#include <vector>

namespace velmox::e2e {

using Params = std::vector<std::pair<Str, Str>>;

/// The document that a server writes to the program's standard input. Texts go in as they stand, so that a
/// test can put entities and markup of its own.
class InputDocument
{
public:
    InputDocument &checkpointDir(const Str &path)
    {
        head_ += Str::fromFormat("<checkpoint_dir>%s</checkpoint_dir>", path.c_str());
        return *this;
    }
    InputDocument &stanza(const Str &name, const Params &params)
    {
        stanzas_ += Str::fromFormat("<stanza name=\"%s\">", name.c_str());
        for (const auto &[key, value] : params) {
            stanzas_ += Str::fromFormat("<param name=\"%s\">%s</param>", key.c_str(), value.c_str());
        }
        stanzas_ += "</stanza>";
        return *this;
    }
    Str text() const
    {
        return Str::fromFormat(
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?><input><server_host>here</server_host>%s"
            "<configuration>%s</configuration></input>",
            head_.c_str(), stanzas_.c_str());
    }

private:
    Str head_;
    Str stanzas_;
};

} // namespace velmox::e2e
