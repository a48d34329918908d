#include "conf/file/conf_line_reader.h"
#include "conf/mapper/conf_file_reader.h"
#include "conf/mapper/meta_file.h"

namespace velmox {

bool readMetaFile(const Pathname &file, const ConfPathBase &app, ConfPathTrie &out)
{
    return readConfLines(file, [&](ConfLineReader &reader) { readMetaText(reader, app, out); });
}

} // namespace velmox
