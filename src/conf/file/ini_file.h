#pragma once

#include "conf/file/ini_stanza.h"
#include "util/files/file_star.h"
#include "util/text/pathname.h"
#include "util/text/text_encoding.h"

namespace velmox {

class ConfLineReader;
class ReadableUnicodeStream;
class WritableUnicodeStream;

/// The editable image of one conf file: its stanzas and keys with their order, the comments and blank lines
/// between them, and the encoding and line ends of the text.
///
/// Of a key that stands twice in a stanza the first value counts. A plain value without locks; pointers to
/// stanzas hold until the stanza is removed or the image cleared. Failures are logged here.
class IniFile
{
    using Stanzas = InsertionOrderedMap<IniStanza>;

public:
    using const_iterator = Stanzas::const_iterator;

    IniFile() = default;
    /// Loads the file; what cannot be opened or read gives an empty image that is not loaded.
    explicit IniFile(const Pathname &path);
    /// Loads from a stream at its beginning; `path` is the destination.
    IniFile(FileStar stream, const Pathname &path);

    void load(const Pathname &path);
    /// Parses text in place of what the image holds; `path` names it in warnings.
    void read(ReadableUnicodeStream &stream, const Pathname &path);

    /// Replaces the destination by the image: readers see the old file or the new one, whole, and so it stays
    /// when the process ends on the way.
    bool flush();
    /// Writes to a file as it stands there, and flushes it. What cannot be written whole is removed.
    bool writeTo(const Pathname &path);
    /// An image of unknown encoding becomes UTF-8, and stays so.
    void write(WritableUnicodeStream &out);

    /// Empties the image of stanzas and comments; destination and encoding stay.
    void clear();

    bool loaded() const { return loaded_; }
    TextEncodingWord encoding() const { return encoding_; }
    void setEncoding(TextEncodingWord encoding) { encoding_ = encoding; }
    const Pathname &destination() const { return destination_; }
    void setDestination(const Pathname &path) { destination_ = path; }

    /// The stanzas in their order, each with `key`, which is its name, and `value`.
    const_iterator begin() const { return stanzas_.begin(); }
    const_iterator end() const { return stanzas_.end(); }
    bool empty() const { return stanzas_.empty(); }
    std::size_t stanzaCount() const { return stanzas_.size(); }

    /// Null when there is none. Names are compared byte by byte.
    IniStanza *findStanza(std::string_view name);
    const IniStanza *findStanza(std::string_view name) const;
    /// Finds the stanza, or adds it at the end.
    IniStanza &stanza(const Str &name);
    bool removeStanza(std::string_view name);
    /// Adds the other's stanzas and keys that this image lacks.
    void merge(const IniFile &other);

    /// The lines before the first header or key, and those after the last.
    const StrVector &headComments() const { return headComments_; }
    const StrVector &tailComments() const { return tailComments_; }

private:
    class Parser;

    void loadFrom(FileStar stream);
    bool writeTo(FileStar &file, const Str &name);
    bool renameToDestination(const Pathname &temporary) const;

    StrVector headComments_;
    StrVector tailComments_;
    Stanzas stanzas_;
    Pathname destination_;
    bool loaded_ = false;
    TextEncodingWord encoding_ = kDefaultEncodingWord;
};

} // namespace velmox
