#pragma once

// conf/file: what a conf file is as a text. Two readers share one parser of lines, and differ on purpose: the
// image below is what gets edited and written back, so it keeps comments, order and encoding, and of a key
// that stands twice the first value; the mappers' reader fills a tree with what counts, where the last value
// does.

#include "conf/file/insertion_ordered_map.h"
#include "util/text/char_set.h"
#include "util/text/pathname.h"
#include "util/text/str_segment.h"
#include "util/text/text_encoding.h"

namespace velmox {

class ConfLineReader;
class FileStar;
class ReadableUnicodeStream;
class WritableUnicodeStream;

/// One key of a stanza: its value and the lines above it.
class IniEntry
{
public:
    IniEntry() = default;
    explicit IniEntry(Str value, StrVector comments = {})
        : comments_(std::move(comments)), value_(std::move(value))
    {
    }

    /// Without the blanks around it.
    std::string_view value() const { return trimmedView(value_); }
    void setValue(const Str &value) { value_ = value; }

    /// The blank lines and comments directly above the key, as they stand in the file.
    StrVector &comments() { return comments_; }
    const StrVector &comments() const { return comments_; }

private:
    StrVector comments_;
    Str value_;
};

/// Looks keys up by their text without the blanks around it.
struct TrimmedKey
{
    static std::string_view of(std::string_view key) { return trimmedView(key); }
};

/// One stanza: its keys in their order, and the lines above its header.
///
/// A key is kept as it was written, with its blanks, and found and given back without them. Pointers to
/// entries hold until the key is removed.
class IniStanza
{
    using Keys = InsertionOrderedMap<IniEntry, TrimmedKey>;

public:
    /// What iteration gives: key and value, both trimmed. The views hold until the entry changes.
    struct Setting
    {
        std::string_view key;
        std::string_view value;
        const IniEntry &entry;
    };

    class const_iterator
    {
    public:
        explicit const_iterator(Keys::const_iterator at) : at_(at) {}
        Setting operator*() const { return {trimmedView(at_->key), at_->value.value(), at_->value}; }
        const_iterator &operator++()
        {
            ++at_;
            return *this;
        }
        bool operator==(const const_iterator &) const = default;

    private:
        Keys::const_iterator at_;
    };

    const_iterator begin() const { return const_iterator(keys_.begin()); }
    const_iterator end() const { return const_iterator(keys_.end()); }
    bool empty() const { return keys_.empty(); }

    /// Null when there is none.
    IniEntry *findKey(std::string_view key);
    const IniEntry *findKey(std::string_view key) const;
    /// Adds the key at the end; false, with everything left as it was, when it is there.
    bool insertKey(const Str &key, const Str &value, StrVector comments = {});
    /// False when it is not there.
    bool removeKey(std::string_view key) { return keys_.erase(key); }
    /// Adds the other's keys that this stanza lacks.
    void merge(const IniStanza &other);

    /// The lines directly above the header.
    StrVector &comments() { return comments_; }
    const StrVector &comments() const { return comments_; }

private:
    StrVector comments_;
    Keys keys_;
};

/// The editable image of one conf file, or of another file of the same form such as conf.conf or users.ini:
/// its stanzas and keys with their order, the comments and blank lines between them, and the encoding and
/// line ends of the text.
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

    /// Loads a file in place of what the image holds, and makes it the destination. What cannot be opened, or
    /// read to its end, gives an empty image that is not loaded.
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

    /// Whether the image was read from a text, to its end.
    bool loaded() const { return loaded_; }
    TextEncodingWord encoding() const { return encoding_; }
    void setEncoding(TextEncodingWord encoding) { encoding_ = encoding; }
    const Pathname &destination() const { return destination_; }
    /// Where `flush` writes.
    void setDestination(const Pathname &path) { destination_ = path; }

    /// The stanzas in their order, each with `key`, which is its name, and `value`.
    const_iterator begin() const { return stanzas_.begin(); }
    const_iterator end() const { return stanzas_.end(); }
    bool empty() const { return stanzas_.empty(); }

    /// Null when there is none. Names are compared byte by byte.
    IniStanza *findStanza(std::string_view name);
    const IniStanza *findStanza(std::string_view name) const;
    /// Finds the stanza, or adds it at the end.
    IniStanza &stanza(const Str &name);
    /// False when there is none. The empty lines above a stanza that becomes the first go as well.
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
