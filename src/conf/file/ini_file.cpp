#include "conf/file/ini_file.h"

#include "conf/file/conf_line_reader.h"
#include "conf/file/ini_log.h"

namespace velmox {

namespace {

/// Where keys belong that stand before any header.
constexpr char kDefaultStanza[] = "default";

} // namespace

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
                image_.encoding_ = reader_.encoding();
                return;
            case ConfLine::Blank:
            case ConfLine::Comment:
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
    for (const auto &[name, stanza] : other.stanzas_) {
        const auto [found, added] = stanzas_.insert(name, stanza);
        if (!added) {
            found->value.merge(stanza);
        }
    }
}

} // namespace velmox
