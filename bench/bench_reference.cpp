// What the monitor's figures are measured by.
//
//     bench_reference events FILE     writes the events of a file one by one, each flushed
//     bench_reference walk [FILE]     reads every key and value of HKEY_LOCAL_MACHINE, and writes the text of
//                                     the file for each value, flushed

#include "util/system/owned_handle.h"

#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

int writeEvents(const char *path)
{
    std::FILE *file = std::fopen(path, "rb");
    if (file == nullptr) {
        return 1;
    }
    std::vector<std::string> events(1);
    for (char line[4096]; std::fgets(line, sizeof line, file) != nullptr;) {
        events.back() += line;
        if (std::strcmp(line, "</event>\n") == 0) {
            events.emplace_back();
        }
    }
    std::fclose(file);
    for (const std::string &event : events) {
        std::fputs(event.c_str(), stdout);
        std::fflush(stdout);
    }
    return 0;
}

void walk(HKEY key, const std::string &text)
{
    DWORD subKeys = 0;
    DWORD subKeyName = 0;
    DWORD values = 0;
    DWORD valueName = 0;
    DWORD dataBytes = 0;
    if (RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, &subKeys, &subKeyName, nullptr, &values, &valueName,
                         &dataBytes, nullptr, nullptr) != ERROR_SUCCESS) {
        return;
    }
    std::vector<wchar_t> name((valueName > subKeyName ? valueName : subKeyName) + 1);
    std::vector<BYTE> data(dataBytes + 1);
    for (DWORD index = 0; index < values; ++index) {
        auto nameUnits = static_cast<DWORD>(name.size());
        DWORD bytes = dataBytes;
        DWORD type = 0;
        RegEnumValueW(key, index, name.data(), &nameUnits, nullptr, &type, data.data(), &bytes);
        if (!text.empty()) {
            std::fputs(text.c_str(), stdout);
            std::fflush(stdout);
        }
    }
    for (DWORD index = 0; index < subKeys; ++index) {
        auto nameUnits = static_cast<DWORD>(name.size());
        RegEnumKeyExW(key, index, name.data(), &nameUnits, nullptr, nullptr, nullptr, nullptr);
        HKEY child = nullptr;
        if (RegOpenKeyExW(key, name.data(), 0, KEY_READ, &child) == ERROR_SUCCESS) {
            walk(child, text);
            RegCloseKey(child);
        }
    }
}

} // namespace

int main(int count, char **arguments)
{
    if (count == 3 && std::strcmp(arguments[1], "events") == 0) {
        return writeEvents(arguments[2]);
    }
    if (count >= 2 && std::strcmp(arguments[1], "walk") == 0) {
        std::string text;
        if (count == 3) {
            std::ifstream file(arguments[2]);
            text.assign(std::istreambuf_iterator<char>(file), {});
        }
        walk(HKEY_LOCAL_MACHINE, text);
        return 0;
    }
    return 2;
}
