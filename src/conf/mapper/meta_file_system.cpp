#include "conf/file/conf_line_reader.h"
#include "conf/mapper/conf_read_counters.h"
#include "conf/mapper/meta_file.h"
#include "util/open_file.h"
#include "util/readable_unicode_file_star.h"

namespace velmox {

bool readMetaFile(const Pathname &file, const ConfPathBase &app, ConfPathTrie &out)
{
    FileStar stream = openFile(file, "r");
    if (!stream.isOpen()) {
        return false;
    }
    // The decoder sees to line ends itself.
    stream.setBinary();
    ReadableUnicodeFileStar text(stream.get());
    ConfLineReader reader(text, file);
    readMetaText(reader, app, out);
    const long position = std::ftell(stream.get());
    confReadCounters.count(position > 0 ? static_cast<std::uint64_t>(position) : 0);
    return !std::ferror(stream.get());
}

} // namespace velmox
