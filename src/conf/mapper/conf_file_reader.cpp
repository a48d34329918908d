#include "conf/mapper/conf_file_reader.h"

#include "conf/file/conf_line_reader.h"
#include "conf/file/conf_read_counters.h"
#include "conf/file/ini_stanza.h"
#include "conf/tree/stanza_expansion.h"
#include "util/files/open_file.h"
#include "util/files/readable_unicode_file_star.h"

namespace velmox {

namespace {

ConfPathTrie &addStanza(const Str &name, const Pathname &rootDirectory, const ConfPathMetadataPtr &metadata,
                        ConfPathTrie &typeNode)
{
    ConfPathTrie &stanza = typeNode.child(name, stanzaExpansion(name, rootDirectory));
    stanza.setData(Str());
    stanza.setMetadata(metadata);
    return stanza;
}

void readConfText(ConfLineReader &reader, const Pathname &rootDirectory, const ConfPathMetadataPtr &metadata,
                  ConfPathTrie &typeNode)
{
    Str line;
    Str name;
    Str value;
    ConfPathTrie *stanza = nullptr;
    for (;;) {
        switch (parseLine(reader, line, name, value)) {
        case ConfLine::End:
            return;
        case ConfLine::Blank:
        case ConfLine::Comment:
            break;
        case ConfLine::StanzaHeader:
            stanza = &addStanza(name, rootDirectory, metadata, typeNode);
            break;
        case ConfLine::KeyValue:
            if (!stanza) {
                stanza = &addStanza(kDefaultStanza, rootDirectory, metadata, typeNode);
            }
            ConfPathTrie &key = stanza->child(trimmedView(name));
            key.setData(trimmedView(value));
            key.setMetadata(metadata);
            break;
        }
    }
}

} // namespace

bool readConfLines(const Pathname &file, const std::function<void(ConfLineReader &)> &read)
{
    FileStar stream = openFile(file, "r");
    if (!stream.isOpen()) {
        return false;
    }
    // The decoder sees to line ends itself.
    stream.setBinary();
    ReadableUnicodeFileStar text(stream.get());
    ConfLineReader reader(text, file);
    read(reader);
    const long position = std::ftell(stream.get());
    confReadCounters.count(position > 0 ? static_cast<std::uint64_t>(position) : 0);
    return !std::ferror(stream.get());
}

bool readConfFile(const Pathname &file, const Pathname &rootDirectory, const ConfPathMetadata &metadata,
                  ConfPathTrie &typeNode)
{
    return readConfLines(file, [&](ConfLineReader &reader) {
        readConfText(reader, rootDirectory, shared(metadata), typeNode);
    });
}

} // namespace velmox
