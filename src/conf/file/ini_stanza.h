#pragma once

#include "conf/file/insertion_ordered_map.h"
#include "util/text/str.h"

#include <string_view>

namespace velmox {

/// The text without blanks and tabs around it.
std::string_view trimmedView(std::string_view text);

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

} // namespace velmox
