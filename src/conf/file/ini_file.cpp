#include "conf/file/ini_file.h"

#include "conf/file/conf_line_reader.h"
#include "util/files/writable_unicode_stream.h"

namespace velmox {

namespace {

/// Where keys belong that stand before any header.
constexpr char kDefaultStanza[] = "default";

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

/// A bracket is escaped wherever it stands, though it would open a header only at the line's beginning.
void appendKeyEscaped(std::string_view key, Str &out)
{
    for (const char byte : key) {
        if (byte == '=' || byte == '[' || byte == '\\') {
            out += '\\';
        }
        out += byte;
    }
}

/// Writes the lines of an image. Values need no escapes but those of line ends: the reader takes what is
/// behind the separator as it stands. The texts are kept from line to line for their storage.
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
    /// The line ends of the whole line are escaped, after the key's own escapes, which they leave alone. A
    /// backslash at the end would be taken for one more continuation, but for a blank behind it.
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

IniEntry *IniStanza::findKey(std::string_view key)
{
    const auto found = keys_.find(key);
    return found == keys_.end() ? nullptr : &found->value;
}

const IniEntry *IniStanza::findKey(std::string_view key) const
{
    return const_cast<IniStanza *>(this)->findKey(key);
}

bool IniStanza::insertKey(const Str &key, const Str &value, StrVector comments)
{
    return keys_.insert(key, value, std::move(comments)).second;
}

void IniStanza::merge(const IniStanza &other)
{
    for (const auto &[key, entry] : other.keys_) {
        keys_.insert(key, entry);
    }
}

/// Fills an image line by line.
class IniFile::Parser
{
public:
    Parser(IniFile &image, ConfLineReader &reader) : image_(image), reader_(reader) {}

    void run()
    {
        for (;;) {
            switch (parseLine(reader_, line_, name_, value_)) {
            case ConfLine::End:
                image_.tailComments_ = std::move(pending_);
                // Only now: which line ends prevail shows when all are read.
                image_.encoding_ = reader_.encoding();
                return;
            case ConfLine::Blank:
            case ConfLine::Comment:
                // What stands before all headers belongs to the file, and stays when the first stanza goes.
                (current_ ? pending_ : image_.headComments_).push_back(line_);
                break;
            case ConfLine::StanzaHeader:
                takeStanza();
                break;
            case ConfLine::KeyValue:
                takeKey();
                break;
            }
        }
    }

private:
    /// A repeated header goes on with the first stanza of its name.
    void takeStanza()
    {
        const auto [stanza, added] = image_.stanzas_.insert(name_);
        current_ = &stanza->value;
        // The lines above a repeated header have no place any more, as its header is not written again.
        if (added) {
            current_->comments() = std::move(pending_);
        }
        pending_.clear();
    }

    void takeKey()
    {
        if (!current_) {
            current_ = &image_.stanza(kDefaultStanza);
        }
        if (!current_->insertKey(name_, value_, std::move(pending_))) {
            iniLog.warn() << location(reader_) << ": Key used more than once in the same stanza: " << name_
                          << ": " << line_;
        }
        pending_.clear();
    }

    IniFile &image_;
    ConfLineReader &reader_;
    IniStanza *current_ = nullptr; ///< null until the first header or key
    StrVector pending_;            ///< the lines above the next header or key
    Str line_;
    Str name_;
    Str value_;
};

void IniFile::read(ReadableUnicodeStream &stream, const Pathname &path)
{
    // Text is text: whatever it holds, an image was loaded, if with warnings.
    clear();
    loaded_ = true;
    ConfLineReader reader(stream, path);
    Parser(*this, reader).run();
}

void IniFile::clear()
{
    headComments_.clear();
    tailComments_.clear();
    stanzas_.clear();
}

IniStanza *IniFile::findStanza(std::string_view name)
{
    const auto found = stanzas_.find(name);
    return found == stanzas_.end() ? nullptr : &found->value;
}

const IniStanza *IniFile::findStanza(std::string_view name) const
{
    return const_cast<IniFile *>(this)->findStanza(name);
}

IniStanza &IniFile::stanza(const Str &name)
{
    return stanzas_.insert(name).first->value;
}

bool IniFile::removeStanza(std::string_view name)
{
    const auto found = stanzas_.find(name);
    if (found == stanzas_.end()) {
        return false;
    }
    const bool wasFirst = found == stanzas_.begin();
    const auto next = stanzas_.erase(found);
    if (wasFirst && next != stanzas_.end()) {
        // The blank lines that set it apart would otherwise open the file.
        std::erase(next->value.comments(), "");
    }
    return true;
}

void IniFile::merge(const IniFile &other)
{
    // A stanza that is here keeps its own lines above it; only keys come from the other.
    for (const auto &[name, stanza] : other.stanzas_) {
        const auto [found, added] = stanzas_.insert(name, stanza);
        if (!added) {
            found->value.merge(stanza);
        }
    }
}

/// Stanzas without lines of their own are set apart by an empty line; it is read back as one of the next
/// stanza's lines, so that writing again adds none.
void IniFile::write(WritableUnicodeStream &out)
{
    // Set here and not left to the writer, so that the image says what its file has.
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
