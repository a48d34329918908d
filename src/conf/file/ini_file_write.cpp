#include "conf/file/ini_file.h"
#include "util/files/writable_unicode_stream.h"

namespace velmox {

namespace {

/// A backslash before each line end, so that it reads back as a continuation.
void appendWithLineEndsEscaped(std::string_view text, Str &out)
{
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t lineEnd = text.find_first_of("\r\n", at);
        out.append(text.substr(at, lineEnd - at));
        if (lineEnd == std::string_view::npos) {
            return;
        }
        const std::size_t length = text.substr(lineEnd).starts_with("\r\n") ? 2 : 1;
        out.append("\\").append(text.substr(lineEnd, length));
        at = lineEnd + length;
    }
}

void appendKeyEscaped(std::string_view key, Str &out)
{
    for (const char byte : key) {
        if (byte == '=' || byte == '[' || byte == '\\') {
            out += '\\';
        }
        out += byte;
    }
}

/// Writes the lines of an image. The texts are kept from line to line for their storage.
class IniWriter
{
public:
    explicit IniWriter(WritableUnicodeStream &out) : out_(out) {}

    void writeVerbatim(const StrVector &lines)
    {
        for (const Str &line : lines) {
            out_.write(line);
            out_.write("\n");
        }
    }

    void writeHeader(std::string_view name)
    {
        text_.clear();
        text_.append("[").append(name).append("]");
        writeLine();
    }

    void writeSetting(std::string_view key, std::string_view value)
    {
        text_.clear();
        appendKeyEscaped(key, text_);
        text_.append(" = ").append(value);
        writeLine();
    }

private:
    void writeLine()
    {
        line_.clear();
        appendWithLineEndsEscaped(text_, line_);
        if (line_.endsWith("\\")) {
            line_ += ' ';
        }
        line_ += '\n';
        out_.write(line_);
    }

    WritableUnicodeStream &out_;
    Str text_;
    Str line_;
};

} // namespace

void IniFile::write(WritableUnicodeStream &out)
{
    if (encodingOf(encoding_) < TextEncoding::Utf8) {
        encoding_ = withEncoding(encoding_, TextEncoding::Utf8);
    }
    out.setEncoding(encoding_);
    IniWriter writer(out);
    writer.writeVerbatim(headComments_);
    bool first = true;
    for (const auto &[name, stanza] : stanzas_) {
        writer.writeVerbatim(stanza.comments());
        if (!first && stanza.comments().empty()) {
            out.write("\n");
        }
        first = false;
        writer.writeHeader(name);
        for (const auto &[key, value, entry] : stanza) {
            writer.writeVerbatim(entry.comments());
            writer.writeSetting(key, value);
        }
    }
    writer.writeVerbatim(tailComments_);
}

} // namespace velmox
