#pragma once

#include "util/text/str.h"
#include "util/text/wide_str.h"

#include <string_view>
#include <vector>

namespace velmox {

/// What Windows itself takes for a separator.
constexpr bool isSlash(char16_t unit)
{
    return unit == u'\\' || unit == u'/';
}

/// Length of the drive in front of a path, a letter and a colon; 0 when there is none.
constexpr std::size_t driveLength(std::u16string_view path)
{
    const bool letter =
        !path.empty() && ((path[0] >= u'A' && path[0] <= u'Z') || (path[0] >= u'a' && path[0] <= u'z'));
    return letter && path.size() >= 2 && path[1] == u':' ? 2 : 0;
}

/// A path as 16-bit text, handed to the system's wide interfaces as it stands: the separator is the
/// backslash, and no long-path prefix is ever added.
///
/// `append` joins; text goes directly behind the path by `concat` or `+=`. Order and equality are by 16-bit
/// units. Lengths count units of the source, and the source of an append must not be the path's own text.
class Pathname : public WideStr
{
public:
    using WideStr::WideStr;

    /// The one separator that paths are made with. What comes from outside may have slashes; the operations
    /// that know both kinds say so.
    static constexpr char16_t kSeparator = u'\\';

    Pathname() = default;
    Pathname(const WideStr &text) : WideStr(text) {}
    Pathname(WideStr &&text) : WideStr(std::move(text)) {}
    static Pathname fromUtf8(std::string_view utf8) { return WideStr::fromUtf8(utf8); }

    /// Joins a component behind a separator and returns the offset where it went in. Text with a drive in
    /// front becomes the whole of an empty path, but the 16-bit form does not know the drive Z. Any other
    /// name joined onto nothing gets a separator in front.
    std::size_t append(const char *utf8, std::size_t length);
    std::size_t append(const char16_t *text, std::size_t length);
    std::size_t append(std::string_view utf8) { return append(utf8.data(), utf8.size()); }
    std::size_t append(std::u16string_view text) { return append(text.data(), text.size()); }

    /// A new path with the text directly behind it.
    Pathname concat(std::string_view utf8) const;
    Pathname concat(std::u16string_view text) const;

    /// A new path with the component joined by `append`.
    Pathname join(std::string_view utf8) const;
    Pathname join(std::u16string_view component) const;

    Str toStr() const { return Str::fromUtf16(view()); }

    /// Whether a slash of either kind stands in front, behind an optional drive.
    bool isAbsolute() const;
    /// Whether two slashes of either kind stand in front.
    bool isUnc() const { return size() >= 2 && isSlash((*this)[0]) && isSlash((*this)[1]); }

    /// Last component without the drive, behind slashes of either kind; trailing ones are ignored. A path
    /// that is only a drive or a root gives its root.
    Pathname basename() const;
    /// What stands before the last component and its separators; only the backslash separates here. A root is
    /// its own parent, and a bare name has the empty one.
    Pathname dirname() const { return substr(0, parentLength()); }
    void dirnameInPlace() { resize(parentLength()); }

    /// The last component without its last point and what follows, and what follows it. A point in front
    /// begins no extension unless there is another.
    Str stem() const;
    Str extension() const;

    void ensureTrailingSlash();
    /// Removes backslashes from the end, but leaves a root its one.
    void stripTrailingSlashes();
    /// Reduces each run of backslashes to one, but for the pair in front of a network path.
    void collapseSlashes();

    /// Appends the pieces between backslashes, empty ones too; the empty path has none.
    void split(std::vector<Pathname> &out) const;

    /// Makes the path absolute against the current folder; it stays as it was when the system refuses.
    void absolute();
    /// Writes the absolute path to `out`; false, with the reason in the last error, when it has none.
    bool toFull(Pathname &out) const;
    /// Writes the path as the file system stores its case; false when it names nothing, or when the stored
    /// names differ by more than case.
    bool trueCase(Pathname &out) const;

private:
    std::size_t parentLength() const;
};

} // namespace velmox
