#pragma once

#include "conf/tree/properties_map.h"
#include "util/text/pathname.h"

namespace velmox {

/// How a script reaches the server.
struct ServerConnection
{
    Str server_host;
    Str server_uri;
    /// With which a script proves to the server on whose behalf it asks.
    Str session_key;
};

/// What a script gets on standard input. ConfigXmlStreamingParser reads it. The names are those of the
/// document's elements.
struct InputDocument
{
    ServerConnection server;
    Pathname checkpoint_dir;
    Stanzas stanzas;

    /// The XML document, in UTF-8, each element on a line of its own.
    Str toXml() const;
};

} // namespace velmox
