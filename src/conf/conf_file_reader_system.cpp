#include "conf/conf_file_reader.h"
#include "conf/conf_line_reader.h"
#include "conf/conf_read_counters.h"
#include "util/open_file.h"
#include "util/readable_unicode_file_star.h"

namespace velmox {

bool readConfFile(const Pathname &file, const Pathname &rootDirectory, const ConfPathMetadata &metadata,
                  ConfPathTrie &typeNode)
{
    FileStar stream = openFile(file, "r");
    if (!stream.isOpen()) {
        return false;
    }
    // The decoder sees to line ends itself.
    stream.setBinary();
    ReadableUnicodeFileStar text(stream.get());
    ConfLineReader reader(text, file);
    readConfText(reader, rootDirectory, metadata, typeNode);
    const long position = std::ftell(stream.get());
    confReadCounters.count(position > 0 ? static_cast<std::uint64_t>(position) : 0);
    return true;
}

} // namespace velmox
