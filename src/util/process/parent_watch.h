#pragma once

namespace velmox {

// The parent watch turns a console signal, the death of a watched process and a demand of the caller into one
// call of a shutdown callback, at most once.
//
// It stands on bare calls of the operating system and the C run-time library, with no logging and none of
// this library's classes, because it must work before they do and after they are gone. Whatever cannot be set
// up ends the process with code 1 and one line on standard error.

/// Whose death counts, and what it leads to.
enum class ParentWatchMode : unsigned
{
    /// Ctrl-C and Ctrl-Break alone. They count in every mode.
    ConsoleOnly = 0,
    /// The callback is called when the process ends.
    RunUntilProcessDies = 1,
    /// The process of the caller ends with code 2 at once when the watched one ends, during a shutdown too.
    DieWhenProcessDies = 2,
    /// The process to watch is the one that `VELMOXD_PROCESSID` names, if it is set. Its death ends the
    /// caller's process with code 99, without the callback; 96 to 98 tell that it cannot be watched: no
    /// thread, ended already, not to be opened.
    ServerByEnvironment = 3
};

/// Called under a lock, from the thread of a watch, of the console or of `triggerShutdown`. Must return
/// promptly and must not call `stopParentWatch`.
using ShutdownCallback = void (*)(void *argument);

/// Arms the watch; a second call while it is armed does nothing. `pid` is used by the modes that name a
/// process.
void waitForParentOrSignal(ShutdownCallback callback, void *argument, ParentWatchMode mode, unsigned pid);

/// Begins the shutdown from any thread. Who comes while the callback runs waits for its end.
void triggerShutdown();

/// Disarms the watch and waits for its threads, but for the one that watches the server by environment.
void stopParentWatch();

} // namespace velmox
