#include "util/system/program_entry.h"

#ifdef _WIN32

#include "util/system/windows_api.h"
#include "util/text/str.h"

// wmain, because main would get the words in the system's code page, which loses what it has no letter for.
int wmain(int count, wchar_t **arguments)
{
    std::vector<std::string> words;
    for (int at = 1; at < count; ++at) {
        words.emplace_back(velmox::Str::fromUtf16(velmox::asUtf16(arguments[at])).view());
    }
    return velmox::runProgram(words);
}

#else

int main(int count, char **arguments)
{
    // A program may be started without even its name.
    return velmox::runProgram(count > 1 ? std::vector<std::string>(arguments + 1, arguments + count)
                                        : std::vector<std::string>());
}

#endif
