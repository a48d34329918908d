#include "util/match/regex_program.h"

#include <algorithm>
#include <mutex>

namespace velmox {

namespace {

// Held while a program for plain text or machine code is made, by whoever needs it first.
std::mutex making;

constexpr int kNewlines = PCRE_NEWLINE_ANY | PCRE_BSR_UNICODE;

constexpr std::size_t kMiB = 1024 * 1024;

// What the interpreter may use of a thread's stack. Programs for Windows are linked with 128 MiB, the others
// have some 8 MiB. On Windows a `Thread` has less unless it asks for as much as the main thread has: one that
// matches patterns, or reads the configuration store, which does, has to ask.
#ifdef _WIN32
constexpr std::size_t kInterpreterStack = 96 * kMiB;
#else
constexpr std::size_t kInterpreterStack = 4 * kMiB;
#endif

// Machine code has a stack of its own, at first 32 KiB of the thread's. What is larger is address space, of
// which only the touched part costs memory.
constexpr int kSmallMachineStack = 64 * 1024;
constexpr int kLargeMachineStack = 64 * kMiB;

/// How deep the interpreter may go: it calls itself, on the thread's stack, so that some repeated groups go
/// as deep as the subject is long.
unsigned long deepestRecursion()
{
    // This very call tells how much of the stack one level takes, as a negative number (pcrestack(3)).
    static const int frame = -pcre_exec(nullptr, nullptr, nullptr, -999, -999, 0, nullptr, 0);
    return static_cast<unsigned long>(kInterpreterStack / static_cast<std::size_t>(frame));
}

// How far machine code may go before the interpreter has to answer. It counts fewer of its steps than that,
// and each may scan the subject: to PCRE's own limit `.*.*.*b` ran for minutes on the longest path, where the
// interpreter gives up after a tenth of a second.
constexpr unsigned long kMachineSteps = 200'000;

bool isMachineCode(const pcre_extra &extra)
{
    return (extra.flags & PCRE_EXTRA_EXECUTABLE_JIT) != 0;
}

void setLimits(pcre_extra &extra)
{
    extra.flags |= PCRE_EXTRA_MATCH_LIMIT_RECURSION;
    extra.match_limit_recursion = deepestRecursion();
    if (isMachineCode(extra)) {
        extra.flags |= PCRE_EXTRA_MATCH_LIMIT;
        extra.match_limit = kMachineSteps;
    }
}

/// Whether all groups are brackets and no more, or `(?i)`, which the baseline puts in front of each of
/// its patterns. PCRE takes `.*` in a look-ahead for a beginning that anchors the pattern, but not always, so
/// that machine code and interpreter may differ.
bool hasPlainGroups(std::string_view pattern)
{
    constexpr std::string_view kBeginning = "(?";
    for (std::size_t at = pattern.find(kBeginning); at != pattern.npos;
         at = pattern.find(kBeginning, at + 1)) {
        const std::string_view kind = pattern.substr(at + kBeginning.size());
        if (!kind.starts_with(':') && !kind.starts_with("i)")) {
            return false;
        }
    }
    return true;
}

/// Whether a program means the same with the newline setting compiled in: a pattern may begin with settings
/// of its own, which that of a call overrides, and comments end at newlines.
bool canHaveNewlines(const Str &pattern, int pcreFlags)
{
    constexpr int kOwnNewlines = PCRE_NEWLINE_CR | PCRE_NEWLINE_LF | PCRE_NEWLINE_ANY | PCRE_NEWLINE_ANYCRLF |
                                 PCRE_BSR_ANYCRLF | PCRE_BSR_UNICODE;
    return (pcreFlags & kOwnNewlines) == 0 && !pattern.contains("(*") && !pattern.contains("#") &&
           hasPlainGroups(pattern.view());
}

/// As signed numbers, bytes beyond ASCII are negative: one comparison leaves them out with the control
/// characters, among which are all line ends.
bool isPlainByte(char byte)
{
    return static_cast<signed char>(byte) >= ' ';
}

/// Of a pattern beyond ASCII single bytes would be repeated.
bool canHavePlainProgram(const Str &pattern, int pcreFlags)
{
    return (pcreFlags & ~(PCRE_ANCHORED | PCRE_CASELESS)) == 0 && canHaveNewlines(pattern, pcreFlags) &&
           std::ranges::all_of(pattern, [](char byte) { return (byte & 0x80) == 0; });
}

bool isPlain(const char *text, std::size_t length)
{
    // No way out of the loop, so that the compiler can look at many bytes at a time.
    unsigned isOther = 0;
    for (std::size_t i = 0; i < length; ++i) {
        isOther |= isPlainByte(text[i]) ? 0u : 1u;
    }
    return isOther == 0;
}

} // namespace

std::unique_ptr<RegexProgram> RegexProgram::compile(const Str &pattern, bool study, int pcreFlags,
                                                    const char *&error)
{
    const int newlines = canHaveNewlines(pattern, pcreFlags) ? kNewlines : 0;
    return make(pattern, study, pcreFlags, PCRE_UTF8 | newlines, error);
}

std::unique_ptr<RegexProgram> RegexProgram::make(const Str &pattern, bool study, int pcreFlags, int ownFlags,
                                                 const char *&error)
{
    int errorOffset = 0;
    pcre *code = pcre_compile(pattern.c_str(), pcreFlags | ownFlags, &error, &errorOffset, nullptr);
    return code == nullptr ? nullptr
                           : std::unique_ptr<RegexProgram>(new RegexProgram(code, pattern, study, pcreFlags));
}

RegexProgram::RegexProgram(pcre *code, const Str &pattern, bool study, int pcreFlags)
    : code_(code), pattern_(pattern), isStudied_(study), flags_(pcreFlags),
      hasNewlines_(canHaveNewlines(pattern, pcreFlags))
{
    setLimits(limits_);
    if (!study || !canHavePlainProgram(pattern, pcreFlags)) {
        plain_ = this;
    }
}

RegexProgram::~RegexProgram()
{
    if (plain_ != this) {
        delete plain_;
    }
    pcre_free_study(study_);
    pcre_free(code_);
}

const RegexProgram &RegexProgram::plain() const
{
    if (const RegexProgram *made = plain_.load(std::memory_order_acquire)) {
        return *made;
    }
    const std::lock_guard guard(making);
    if (plain_ == nullptr) {
        const char *error = nullptr;
        std::unique_ptr<RegexProgram> program =
            make(pattern_, isStudied_, flags_, PCRE_DOTALL | kNewlines, error);
        if (program) {
            program->plain_ = program.get();
        }
        // This program itself when there is no other: so that nobody tries again.
        plain_.store(program ? program.release() : this, std::memory_order_release);
    }
    return *plain_;
}

const pcre_extra &RegexProgram::extra() const
{
    if (const pcre_extra *made = study_.load(std::memory_order_acquire)) {
        return *made;
    }
    if (!isStudied_) {
        return limits_;
    }
    const std::lock_guard guard(making);
    if (study_ == nullptr) {
        // Machine code runs only for calls that say nothing of newlines.
        const int options = PCRE_STUDY_EXTRA_NEEDED | (hasNewlines_ ? PCRE_STUDY_JIT_COMPILE : 0);
        const char *error = nullptr;
        pcre_extra *made = pcre_study(code_, options, &error);
        if (made == nullptr) {
            return limits_;
        }
        setLimits(*made);
        study_.store(made, std::memory_order_release);
    }
    return *study_;
}

int RegexProgram::exec(const char *subject, std::size_t length, int options, int *offsets, int count) const
{
    // A program that has its newlines compiled in must not be given them again: machine code does not run for
    // a call that names any.
    const RegexProgram &program = isPlain(subject, length) ? plain() : *this;
    const int all = options | (program.hasNewlines_ ? 0 : kNewlines);
    return program.run({subject, static_cast<int>(length), all, offsets, count});
}

int RegexProgram::execWithDefaultNewline(const char *subject, std::size_t length, int options, int *offsets,
                                         int count) const
{
    // LF is what PCRE is built for, and what a program that was compiled for any must be told.
    const int all = options | (hasNewlines_ ? PCRE_NEWLINE_LF : 0);
    return interpret({subject, static_cast<int>(length), all, offsets, count});
}

int RegexProgram::run(const Call &call) const
{
    const pcre_extra &how = extra();
    int result = pcre_exec(code_, &how, call.subject, call.length, 0, call.options, call.offsets, call.count);
    if (!isMachineCode(how)) {
        return result;
    }
    // Each way out costs more than the one before: a larger stack, then the interpreter, whose answer stands.
    if (result == PCRE_ERROR_JIT_STACKLIMIT) {
        result = runOnLargeStack(call);
    }
    return result == PCRE_ERROR_JIT_STACKLIMIT || result == PCRE_ERROR_MATCHLIMIT ? interpret(call) : result;
}

int RegexProgram::runOnLargeStack(const Call &call) const
{
    const std::unique_ptr<pcre_jit_stack, decltype(&pcre_jit_stack_free)> stack(
        pcre_jit_stack_alloc(kSmallMachineStack, kLargeMachineStack), pcre_jit_stack_free);
    return !stack ? PCRE_ERROR_JIT_STACKLIMIT
                  : pcre_jit_exec(code_, &extra(), call.subject, call.length, 0, call.options, call.offsets,
                                  call.count, stack.get());
}

// To PCRE's own limit of steps.
int RegexProgram::interpret(const Call &call) const
{
    // A copy, as threads share the original.
    pcre_extra how = extra();
    if (isMachineCode(how)) {
        how.flags &= ~static_cast<unsigned long>(PCRE_EXTRA_EXECUTABLE_JIT | PCRE_EXTRA_MATCH_LIMIT);
    }
    return pcre_exec(code_, &how, call.subject, call.length, 0, call.options, call.offsets, call.count);
}

} // namespace velmox
