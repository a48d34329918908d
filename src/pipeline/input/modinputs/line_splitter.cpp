#include "pipeline/input/modinputs/line_splitter.h"

#include <algorithm>

namespace velmox {

void LineSplitter::feed(std::string_view piece)
{
    while (!piece.empty()) {
        const std::size_t end = std::min(piece.find('\n'), piece.size());
        if (end == 0) {
            handOn();
            piece.remove_prefix(1);
            continue;
        }
        if (line_.size() == kLongestLine) {
            handOn();
        }
        const std::size_t taken = std::min(end, kLongestLine - line_.size());
        line_.append(piece.substr(0, taken));
        piece.remove_prefix(taken);
    }
}

void LineSplitter::finish()
{
    if (!line_.empty()) {
        handOn();
    }
}

void LineSplitter::handOn()
{
    if (line_.endsWith("\r")) {
        line_.pop_back();
    }
    onLine_(line_);
    line_.clear();
}

} // namespace velmox
