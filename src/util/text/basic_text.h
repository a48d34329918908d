#pragma once

#include <algorithm>
#include <compare>
#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

namespace velmox {

/// The owned-string operations that `Str` and `WideStr` share.
///
/// Value semantics, a terminating NUL behind the last unit, and NUL units allowed inside: the length decides.
/// The storage is the library's string, whose inline buffer holds 15 bytes or 7 16-bit units. A position past
/// the end throws std::out_of_range "invalid string position", a length beyond the limit std::length_error
/// "string too long".
///
/// Positions, counts and lengths are in units: bytes of UTF-8, 16-bit units of UTF-16. Pointers, iterators
/// and views into a text hold until it changes or moves. Texts of distinct owners may be used by distinct
/// threads.
template <class Derived, class Unit>
class BasicText
{
public:
    using Storage = std::basic_string<Unit>;
    using View = std::basic_string_view<Unit>;
    using value_type = Unit;
    using iterator = typename Storage::iterator;
    using const_iterator = typename Storage::const_iterator;

    static constexpr std::size_t npos = Storage::npos;

    BasicText() = default;
    /// Up to the NUL. The pointer must not be null: no text is what `StrSegment` is for.
    BasicText(const Unit *cstr) : units_(cstr) {}
    BasicText(const Unit *text, std::size_t length) : units_(text, checkedLength(length)) {}
    BasicText(std::size_t count, Unit unit) : units_(checkedLength(count), unit) {}
    BasicText(View view) : BasicText(view.data(), view.size()) {}
    BasicText(Storage storage) : units_(std::move(storage)) {}

    std::size_t size() const { return units_.size(); }
    std::size_t length() const { return units_.size(); }
    bool empty() const { return units_.empty(); }
    std::size_t capacity() const { return units_.capacity(); }
    const Unit *c_str() const { return units_.c_str(); }
    const Unit *data() const { return units_.data(); }
    Unit *data() { return units_.data(); }
    View view() const { return units_; }
    /// So that a text goes wherever a view is asked for; the view holds as long as the text stands unchanged.
    operator View() const { return units_; }

    iterator begin() { return units_.begin(); }
    iterator end() { return units_.end(); }
    const_iterator begin() const { return units_.begin(); }
    const_iterator end() const { return units_.end(); }

    /// Unchecked; the unit at `size()` is the closing NUL.
    Unit &operator[](std::size_t at) { return units_[at]; }
    const Unit &operator[](std::size_t at) const { return units_[at]; }
    const Unit &at(std::size_t position) const
    {
        if (position >= size()) {
            throwPosition();
        }
        return units_[position];
    }
    /// Only of text that is not empty, as is `pop_back`.
    Unit front() const { return units_.front(); }
    Unit back() const { return units_.back(); }

    void clear() { units_.clear(); }
    void reserve(std::size_t count)
    {
        checkLength(count);
        units_.reserve(count);
    }
    void resize(std::size_t count, Unit fill = Unit())
    {
        checkLength(count);
        units_.resize(count, fill);
    }
    void swap(Derived &other) { units_.swap(other.units_); }

    void push_back(Unit unit)
    {
        // Short of its capacity a text cannot meet the limit, so that the usual case costs one comparison.
        if (size() == capacity()) {
            checkLength(1, size());
        }
        units_.push_back(unit);
    }
    void pop_back() { units_.pop_back(); }
    Derived &append(View text)
    {
        checkLength(text.size(), size());
        units_.append(text);
        return self();
    }
    Derived &append(const Unit *text, std::size_t count) { return append(View(text, count)); }
    Derived &append(std::size_t count, Unit unit)
    {
        checkLength(count, size());
        units_.append(count, unit);
        return self();
    }
    Derived &operator+=(View text) { return append(text); }
    Derived &operator+=(Unit unit)
    {
        push_back(unit);
        return self();
    }
    Derived &assign(View text)
    {
        checkLength(text.size());
        units_.assign(text);
        return self();
    }
    Derived &insert(std::size_t position, View text)
    {
        checkPosition(position);
        checkLength(text.size(), size());
        units_.insert(position, text);
        return self();
    }
    Derived &erase(std::size_t position = 0, std::size_t count = npos)
    {
        checkPosition(position);
        units_.erase(position, count);
        return self();
    }
    Derived &replace(std::size_t position, std::size_t count, View text)
    {
        checkPosition(position);
        checkLength(text.size(), size() - std::min(count, size() - position));
        units_.replace(position, count, text);
        return self();
    }

    /// What there is of `count` units from the position on, as a text of its own.
    Derived substr(std::size_t position, std::size_t count = npos) const
    {
        checkPosition(position);
        return Derived(View(units_).substr(position, count));
    }
    /// The position of what is looked for, or `npos`. `rfind` looks for what begins at `from` or before.
    std::size_t find(View text, std::size_t from = 0) const { return units_.find(text, from); }
    std::size_t find(Unit unit, std::size_t from = 0) const { return units_.find(unit, from); }
    std::size_t rfind(View text, std::size_t from = npos) const { return units_.rfind(text, from); }
    std::size_t rfind(Unit unit, std::size_t from = npos) const { return units_.rfind(unit, from); }
    bool contains(View text) const { return units_.find(text) != npos; }
    bool startsWith(View text) const { return units_.starts_with(text); }
    bool endsWith(View text) const { return units_.ends_with(text); }
    /// Below 0, 0 or above, by the units as unsigned numbers: for UTF-8 that is the order of code points.
    int compare(View text) const { return units_.compare(text); }

    // Each operand has a form of its own: a literal converts to Derived as well as to View, and with fewer
    // forms the comparison with it would be ambiguous.
    friend bool operator==(const Derived &a, const Derived &b) { return a.units_ == b.units_; }
    friend bool operator==(const Derived &a, View b) { return a.units_ == b; }
    friend bool operator==(const Derived &a, const Unit *b) { return a.units_ == b; }
    friend auto operator<=>(const Derived &a, const Derived &b) { return a.units_ <=> b.units_; }
    friend auto operator<=>(const Derived &a, View b) { return View(a.units_) <=> b; }
    friend auto operator<=>(const Derived &a, const Unit *b) { return a.units_ <=> b; }

private:
    Derived &self() { return static_cast<Derived &>(*this); }

    // Thrown here and not by the library, whose texts name its own operations ("basic_string::substr: ..."):
    // these two end in log lines, and people know them.
    [[noreturn]] static void throwPosition() { throw std::out_of_range("invalid string position"); }
    void checkPosition(std::size_t position) const
    {
        if (position > size()) {
            throwPosition();
        }
    }
    static void checkLength(std::size_t added, std::size_t standing = 0)
    {
        // Compared without adding, which could wrap.
        if (added > Storage().max_size() - standing) {
            throw std::length_error("string too long");
        }
    }
    static std::size_t checkedLength(std::size_t length)
    {
        checkLength(length);
        return length;
    }

    Storage units_;
};

} // namespace velmox
