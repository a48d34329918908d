#include "util/match/regex_program.h"

#include <algorithm>

namespace velmox {

namespace {

constexpr int kNewlines = PCRE_NEWLINE_ANY | PCRE_BSR_UNICODE;

constexpr std::size_t kMiB = 1024 * 1024;

// What the interpreter may use of a thread's stack. Programs for Windows are linked with 128 MiB for each
// thread, the others have some 8 MiB.
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
    // This very call tells how much of the stack one level takes, as a negative number.
    static const int frame = -pcre_exec(nullptr, nullptr, nullptr, -999, -999, 0, nullptr, 0);
    return static_cast<unsigned long>(kInterpreterStack / static_cast<std::size_t>(frame));
}

void setLimits(pcre_extra &extra)
{
    extra.flags |= PCRE_EXTRA_MATCH_LIMIT_RECURSION;
    extra.match_limit_recursion = deepestRecursion();
}

/// Whether a program means the same with the newline setting compiled in: a pattern may begin with settings
/// of its own, which that of a call overrides, and comments end at newlines.
bool canHaveNewlines(const Str &pattern, int pcreFlags)
{
    constexpr int kOwnNewlines = PCRE_NEWLINE_CR | PCRE_NEWLINE_LF | PCRE_NEWLINE_ANY | PCRE_NEWLINE_ANYCRLF |
                                 PCRE_BSR_ANYCRLF | PCRE_BSR_UNICODE;
    return (pcreFlags & kOwnNewlines) == 0 && !pattern.contains("(*") && !pattern.contains("#");
}

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
    unsigned isOther = 0;
    for (std::size_t i = 0; i < length; ++i) {
        isOther |= isPlainByte(text[i]) ? 0u : 1u;
    }
    return isOther == 0;
}

class MachineStack
{
public:
    MachineStack() : stack_(pcre_jit_stack_alloc(kSmallMachineStack, kLargeMachineStack)) {}
    ~MachineStack()
    {
        if (stack_ != nullptr) {
            pcre_jit_stack_free(stack_);
        }
    }
    MachineStack(const MachineStack &) = delete;
    MachineStack &operator=(const MachineStack &) = delete;

    pcre_jit_stack *get() const { return stack_; }

private:
    pcre_jit_stack *stack_;
};

} // namespace

std::unique_ptr<RegexProgram> RegexProgram::compile(const Str &pattern, bool study, int pcreFlags,
                                                    const char *&error)
{
    const int flags = pcreFlags | PCRE_UTF8 | (canHaveNewlines(pattern, pcreFlags) ? kNewlines : 0);
    int errorOffset = 0;
    pcre *code = pcre_compile(pattern.c_str(), flags, &error, &errorOffset, nullptr);
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
    const char *error = nullptr;
    int errorOffset = 0;
    pcre *code =
        pcre_compile(pattern_.c_str(), flags_ | PCRE_DOTALL | kNewlines, &error, &errorOffset, nullptr);
    const RegexProgram *made = this;
    if (code != nullptr) {
        auto *program = new RegexProgram(code, pattern_, isStudied_, flags_);
        program->plain_ = program;
        made = program;
    }
    const RegexProgram *others = nullptr;
    if (!plain_.compare_exchange_strong(others, made, std::memory_order_acq_rel)) {
        if (made != this) {
            delete made;
        }
        return *others;
    }
    return *made;
}

const pcre_extra *RegexProgram::extra() const
{
    if (!isStudied_) {
        return &limits_;
    }
    if (const pcre_extra *made = study_.load(std::memory_order_acquire)) {
        return made;
    }
    // Machine code runs only for calls that say nothing of newlines.
    const int options = PCRE_STUDY_EXTRA_NEEDED | (hasNewlines_ ? PCRE_STUDY_JIT_COMPILE : 0);
    const char *error = nullptr;
    pcre_extra *made = pcre_study(code_, options, &error);
    if (made == nullptr) {
        return &limits_;
    }
    setLimits(*made);
    pcre_extra *others = nullptr;
    if (!study_.compare_exchange_strong(others, made, std::memory_order_acq_rel)) {
        pcre_free_study(made);
        return others;
    }
    return made;
}

int RegexProgram::exec(const char *subject, std::size_t length, int options, int *offsets, int count) const
{
    const RegexProgram &program = isPlain(subject, length) ? plain() : *this;
    return program.run(subject, length, options, offsets, count);
}

int RegexProgram::run(const char *subject, std::size_t length, int options, int *offsets, int count) const
{
    const int all = options | (hasNewlines_ ? 0 : kNewlines);
    const int result = pcre_exec(code_, extra(), subject, static_cast<int>(length), 0, all, offsets, count);
    return result == PCRE_ERROR_JIT_STACKLIMIT ? runOnLargeStack(subject, length, all, offsets, count)
                                               : result;
}

// The machine code with a stack of its own; if even that is too small, the interpreter, which needs less for
// some programs.
int RegexProgram::runOnLargeStack(const char *subject, std::size_t length, int options, int *offsets,
                                  int count) const
{
    const auto size = static_cast<int>(length);
    const MachineStack stack;
    if (stack.get() != nullptr) {
        const int result =
            pcre_jit_exec(code_, extra(), subject, size, 0, options, offsets, count, stack.get());
        if (result != PCRE_ERROR_JIT_STACKLIMIT) {
            return result;
        }
    }
    pcre_extra interpreted = *extra();
    interpreted.flags &= ~static_cast<unsigned long>(PCRE_EXTRA_EXECUTABLE_JIT);
    return pcre_exec(code_, &interpreted, subject, size, 0, options, offsets, count);
}

int RegexProgram::execWithDefaultNewline(const char *subject, std::size_t length, int options, int *offsets,
                                         int count) const
{
    const int all = options | (hasNewlines_ ? PCRE_NEWLINE_LF : 0);
    return pcre_exec(code_, extra(), subject, static_cast<int>(length), 0, all, offsets, count);
}

} // namespace velmox
