// A script as the tests want it: carries out the plan that lies next to it under its own name with ".plan"
// behind.
//
// Each line of the plan is a request, a step and its argument: the steps of the request that came as the last
// word of the command line are carried out in their order, and the end is exit status 0.
//
//     --scheme print TEXT          on standard output, "|" for line ends
//     --scheme complain BYTES      that many on standard error, in lines of 99
//     --scheme flood -             standard output for ever
//     --scheme hang -
//     --scheme save FILE           the command line, a line end, and standard input up to its end
//     --scheme leave -             starts a copy of itself that holds the same streams until there is no plan
//     --scheme exit STATUS

#include "util/system/windows_api.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <iterator>
#include <map>
#include <sstream>
#include <string>

namespace {

std::string ownPath()
{
    char path[MAX_PATH];
    GetModuleFileNameA(nullptr, path, MAX_PATH);
    return path;
}

void print(std::string text)
{
    for (char &byte : text) {
        byte = byte == '|' ? '\n' : byte;
    }
    std::cout << text << std::flush;
}

void complain(const std::string &bytes)
{
    for (long left = std::atol(bytes.c_str()); left > 0; left -= 100) {
        std::cerr << std::string(99, 'e') << '\n';
    }
}

void flood(const std::string &)
{
    for (const std::string piece(65536, 'f');;) {
        std::cout << piece;
    }
}

void save(const std::string &file)
{
    // The plan is UTF-8.
    std::ofstream out(std::filesystem::path(std::u8string(file.begin(), file.end())), std::ios::binary);
    out << GetCommandLineA() << '\n' << std::cin.rdbuf();
}

void leave(const std::string &)
{
    std::string command = ownPath();
    command.insert(0, 1, '"').append("\" linger");
    STARTUPINFOA startup = {};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process;
    CreateProcessA(nullptr, command.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &process);
}

const std::map<std::string, std::function<void(const std::string &)>> kSteps = {
    {"print", print},
    {"complain", complain},
    {"flood", flood},
    {"hang", [](const std::string &) { Sleep(INFINITE); }},
    {"save", save},
    {"leave", leave},
    {"exit", [](const std::string &status) { std::exit(std::atoi(status.c_str())); }},
};

} // namespace

int main(int count, char **arguments)
{
    const std::string wanted = arguments[count - 1];
    if (wanted == "linger") {
        while (GetFileAttributesA((ownPath() + ".plan").c_str()) != INVALID_FILE_ATTRIBUTES) {
            Sleep(20);
        }
        return 0;
    }
    // Closed before a step starts another process, which would inherit it.
    std::stringstream plan;
    plan << std::ifstream(ownPath() + ".plan").rdbuf();
    for (std::string line; std::getline(plan, line);) {
        std::istringstream words(line);
        std::string request;
        std::string step;
        std::string argument;
        words >> request >> step >> std::ws;
        std::getline(words, argument);
        if (request == wanted) {
            kSteps.at(step)(argument);
        }
    }
    return 0;
}
