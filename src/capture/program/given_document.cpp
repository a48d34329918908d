#include "capture/program/given_document.h"

#include "pipeline/input/xml/config_xml_streaming_parser.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <unistd.h>

namespace velmox {

namespace {

/// Notes whether it met a document at all.
class DocumentParser : public ConfigXmlStreamingParser
{
public:
    void startElement(const Str &name) override
    {
        isDocument_ = isDocument_ || name == "input";
        ConfigXmlStreamingParser::startElement(name);
    }
    bool isDocument() const { return isDocument_; }

private:
    bool isDocument_ = false;
};

/// Standard input as the monitor reads it, which is a text stream there: Ctrl-Z ends it, and a CR before an
/// LF does not count. Empty where there is none.
std::string readText()
{
    std::string text;
    char bytes[8192];
    while (const std::size_t count = std::fread(bytes, 1, sizeof bytes, stdin)) {
        text.append(bytes, count);
    }
    if (std::ferror(stdin) != 0 && errno != EBADF) {
        throw DocumentException(std::strerror(errno));
    }
    text.resize(std::min(text.find('\x1a'), text.size()));
    // In place, as the kept bytes never overtake those that are looked at.
    std::size_t kept = 0;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (!std::string_view(text).substr(at).starts_with("\r\n")) {
            text[kept++] = text[at];
        }
    }
    text.resize(kept);
    return text;
}

} // namespace

std::optional<Stanzas> readStanzas()
{
    // The monitor reads as much at a time, which decides at what length a token without an end is dropped.
    constexpr std::size_t kPiece = 8192;
    const std::string text = isatty(STDIN_FILENO) == 0 ? readText() : std::string();
    if (text.find_first_not_of(" \t\r\n") == std::string::npos) {
        return std::nullopt;
    }
    DocumentParser parser;
    try {
        for (std::size_t at = 0; at < text.size(); at += kPiece) {
            parser.feed(text.data() + at, std::min(kPiece, text.size() - at));
        }
    } catch (const BaseException &exception) {
        throw DocumentException(exception.what());
    }
    if (!parser.isDocument()) {
        throw DocumentException("is no input document in UTF-8");
    }
    return parser.stanzas();
}

} // namespace velmox
