#pragma once

#include "util/text/str.h"

#include <atomic>
#include <memory>
#include <pcre.h>

namespace velmox {

/// One program of PCRE, over UTF-8, for `Regex`.
///
/// Where it can be, it is made into machine code, at the first match that needs it: most programs of a long
/// list of stanzas never run. Text that is plain, ASCII without control characters, has a program of its own
/// in which a character is a byte and a dot is any: that takes half the time. Any number of threads may run
/// it.
class RegexProgram
{
public:
    /// Null when the pattern does not compile; `error` then has the reason.
    static std::unique_ptr<RegexProgram> compile(const Str &pattern, bool study, int pcreFlags,
                                                 const char *&error);
    ~RegexProgram();
    RegexProgram(const RegexProgram &) = delete;
    RegexProgram &operator=(const RegexProgram &) = delete;

    /// As pcre_exec from the start of the subject, with any line end as newline. `options` are others than
    /// those of newlines; `count` is that of `offsets`. An error, or a limit that is reached, is a negative
    /// number.
    int exec(const char *subject, std::size_t length, int options, int *offsets, int count) const;

    /// As `exec`, but with the newline that PCRE was built for, and always by the interpreter.
    int execWithDefaultNewline(const char *subject, std::size_t length, int options, int *offsets,
                               int count) const;

    const pcre *code() const { return code_; }

private:
    /// What a call of PCRE is given.
    struct Call
    {
        const char *subject;
        int length;
        int options;
        int *offsets;
        int count;
    };

    RegexProgram(pcre *code, const Str &pattern, bool study, int pcreFlags);
    static std::unique_ptr<RegexProgram> make(const Str &pattern, bool study, int pcreFlags, int ownFlags,
                                              const char *&error);

    int run(const Call &call) const;
    int runOnLargeStack(const Call &call) const;
    int interpret(const Call &call) const;
    const pcre_extra &extra() const;
    const RegexProgram &plain() const;

    pcre *const code_;
    const Str pattern_;
    // Whether the program is to be studied, and so compiled further.
    const bool isStudied_;
    const int flags_;
    // Whether the newline setting is part of the program, and not of each call.
    const bool hasNewlines_;
    // Limits alone, for a program that is not studied.
    pcre_extra limits_ = {};
    // Null until the first match.
    mutable std::atomic<pcre_extra *> study_ = nullptr;
    // The program for plain text: null until the first such text, and this one itself if there is none.
    mutable std::atomic<const RegexProgram *> plain_ = nullptr;
};

} // namespace velmox
