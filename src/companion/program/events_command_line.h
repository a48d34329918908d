#pragma once

#include "companion/events/event_filter.h"

#include <string>
#include <vector>

// The room `program`: `velmox-events` itself. What it was asked for, inputs, and in main.cpp the commands.
namespace velmox {

enum class EventsCommand
{
    Table,
    Json,
    Diff,
    Report,
    Help,
};

/// What the user asked `velmox-events` for.
struct EventsCommandLine
{
    EventsCommand command = EventsCommand::Table;
    /// Whether `diff` writes JSON; the other commands have one form each.
    bool isJson = false;
    EventFilter filter;
    /// Where the report goes; "-" is standard output.
    std::string output;
    /// Inputs: the two of a comparison, else "-" alone if none is named.
    std::vector<std::string> files;
};

extern const char *const kEventsUsage;

/// Reads the words behind the program's name. Without a command it is the table for a terminal, else JSON.
/// Throws std::invalid_argument with what is wrong.
EventsCommandLine readEventsCommandLine(const std::vector<std::string> &words, bool isTerminal);

} // namespace velmox
