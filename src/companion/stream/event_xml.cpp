#include "companion/stream/event_xml.h"

#include "util/text/code_point.h"

#include <array>
#include <libxml/parser.h>

namespace velmox {

namespace {

/// The parser keeps every name that it has met until it is freed, and in a damaged stream each event may
/// bring new ones. A new parser from time to time bounds that.
constexpr unsigned kEventsInDocument = 10000;
constexpr std::string_view kDocumentStart = "<stream>";
/// Depths of the element in which the next one begins: `<stream>` is the document's, `<event>` the only one
/// in it.
constexpr int kInDocument = 1;
constexpr int kInEvent = 2;

/// An element of an event, and where its text goes.
struct Element
{
    std::string_view name;
    std::string EventElements::*text;
};

constexpr Element kElements[] = {
    {"time", &EventElements::time},
    {"data", &EventElements::data},
    {"host", &EventElements::host},
    {"index", &EventElements::index},
};

struct FreeContext
{
    void operator()(xmlParserCtxt *context) const { xmlFreeParserCtxt(context); }
};

std::string_view viewOf(const xmlChar *text)
{
    return reinterpret_cast<const char *>(text);
}

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";
constexpr std::string_view kCarriageReturn = "&#13;";

/// The bytes that the parser can be given as they are. The monitor escapes control characters, so that only a
/// carriage return and what is not ASCII need a look.
constexpr std::array<bool, 256> makePlain()
{
    std::array<bool, 256> plain{};
    for (unsigned byte = 0; byte < 0x80; ++byte) {
        plain[byte] = byte != '\r';
    }
    return plain;
}

constexpr std::array<bool, 256> kPlain = makePlain();

/// 0 behind the end: no byte that continues a character, so that a text which is cut off needs no case of its
/// own.
unsigned byteAt(std::string_view bytes, std::size_t at)
{
    return at < bytes.size() ? static_cast<unsigned char>(bytes[at]) : 0;
}

/// Length of the character at the front, which is not ASCII; 0 when there is none that XML allows. U+FFFE and
/// U+FFFF are characters of Unicode and none of XML (XML 1.0, production 2, Char).
std::size_t characterLength(std::string_view bytes)
{
    const unsigned lead = byteAt(bytes, 0);
    const unsigned following = utf8ContinuationCount(lead);
    if (following == 0 || !isUtf8Second(lead, byteAt(bytes, 1))) {
        return 0;
    }
    for (unsigned at = 2; at <= following; ++at) {
        if (!isUtf8Continuation(byteAt(bytes, at))) {
            return 0;
        }
    }
    const bool isNonCharacter = bytes.starts_with("\xEF\xBF\xBE") || bytes.starts_with("\xEF\xBF\xBF");
    return isNonCharacter ? 0 : following + 1;
}

/// Bytes to pass over where no character is: the three of a non-character, else one.
std::size_t wrongLength(std::string_view bytes)
{
    return bytes.starts_with("\xEF\xBF\xBE") || bytes.starts_with("\xEF\xBF\xBF") ? 3 : 1;
}

/// Appends an event's bytes so that a parser of XML loses none of them. A parser turns every CR LF and every
/// CR into a line feed (XML 1.0, 2.11). CR LF is the stream's own line end, where that is right; any other CR
/// belongs to a text of the registry, and becomes a reference, which the parser leaves a CR. What is no
/// UTF-8, or no character of XML, becomes U+FFFD.
void appendXmlText(std::string_view bytes, std::string &out)
{
    std::size_t at = 0;
    while (at < bytes.size()) {
        const std::size_t begin = at;
        while (at < bytes.size() && kPlain[static_cast<unsigned char>(bytes[at])]) {
            ++at;
        }
        out.append(bytes, begin, at - begin);
        if (at == bytes.size()) {
            return;
        }
        const std::string_view rest = bytes.substr(at);
        if (rest.front() == '\r') {
            out.append(byteAt(rest, 1) == '\n' ? std::string_view() : kCarriageReturn);
            ++at;
        } else if (const std::size_t length = characterLength(rest); length > 0) {
            out.append(rest, 0, length);
            at += length;
        } else {
            out.append(kReplacement);
            at += wrongLength(rest);
        }
    }
}

} // namespace

struct EventXml::State
{
    std::unique_ptr<xmlParserCtxt, FreeContext> context;
    EventElements *out = nullptr;
    /// Where the text of the element that is open goes; null when it is of no interest.
    std::string *text = nullptr;
    int depth = 0;

    static State &of(void *context) { return *static_cast<State *>(context); }
    static void onStart(void *context, const xmlChar *name, const xmlChar *, const xmlChar *, int,
                        const xmlChar **, int attributeCount, int, const xmlChar **attributes);
    static void onEnd(void *context, const xmlChar *, const xmlChar *, const xmlChar *);
    static void onText(void *context, const xmlChar *text, int length);
    void readAttributes(int count, const xmlChar **attributes) const;
};

void EventXml::State::readAttributes(int count, const xmlChar **attributes) const
{
    // Of each: name, prefix, namespace, and begin and end of the value.
    for (const xmlChar **at = attributes; at != attributes + 5 * count; at += 5) {
        if (viewOf(at[0]) == "stanza") {
            out->stanza.assign(reinterpret_cast<const char *>(at[3]), reinterpret_cast<const char *>(at[4]));
        }
    }
}

void EventXml::State::onStart(void *context, const xmlChar *name, const xmlChar *, const xmlChar *, int,
                              const xmlChar **, int attributeCount, int, const xmlChar **attributes)
{
    State &state = of(context);
    // Also when an element begins within one whose text is wanted: the monitor nests none there, and what
    // stands behind such an element is not taken for its text.
    state.text = nullptr;
    if (state.depth == kInDocument) {
        state.readAttributes(attributeCount, attributes);
    } else if (state.depth == kInEvent) {
        for (const Element &element : kElements) {
            if (element.name == viewOf(name)) {
                state.text = &(state.out->*element.text);
                state.text->clear();
            }
        }
    }
    ++state.depth;
}

void EventXml::State::onEnd(void *context, const xmlChar *, const xmlChar *, const xmlChar *)
{
    State &state = of(context);
    state.text = nullptr;
    --state.depth;
}

void EventXml::State::onText(void *context, const xmlChar *text, int length)
{
    const State &state = of(context);
    if (state.text != nullptr) {
        state.text->append(reinterpret_cast<const char *>(text), static_cast<std::size_t>(length));
    }
}

EventXml::EventXml() : state_(std::make_unique<State>()) {}

EventXml::~EventXml() = default;

void EventXml::begin()
{
    xmlSAXHandler handler = {};
    handler.initialized = XML_SAX2_MAGIC;
    handler.startElementNs = State::onStart;
    handler.endElementNs = State::onEnd;
    handler.characters = State::onText;
    // White space and CDATA are text like any other: a value may consist of blanks.
    handler.ignorableWhitespace = State::onText;
    handler.cdataBlock = State::onText;
    // Without a handler the parser would write to standard error. The reader tells of damage, with its
    // offset.
    handler.serror = [](void *, auto *) {};
    state_->depth = 0;
    state_->text = nullptr;
    served_ = 0;
    state_->context.reset(xmlCreatePushParserCtxt(&handler, state_.get(), nullptr, 0, nullptr));
    if (state_->context == nullptr) {
        throw std::bad_alloc();
    }
    // NOENT makes the values of attributes come with their references resolved. NONET keeps the parser off
    // the network. HUGE lifts limits on texts and documents that one without an end would reach.
    xmlCtxtUseOptions(state_->context.get(), XML_PARSE_NOENT | XML_PARSE_NONET | XML_PARSE_HUGE);
    feed(kDocumentStart);
}

bool EventXml::feed(std::string_view bytes)
{
    return xmlParseChunk(state_->context.get(), bytes.data(), static_cast<int>(bytes.size()), 0) ==
           XML_ERR_OK;
}

bool EventXml::read(std::string_view event, EventElements &out)
{
    out.stanza.clear();
    for (const Element &element : kElements) {
        (out.*element.text).clear();
    }
    text_.clear();
    appendXmlText(event, text_);
    if (state_->context == nullptr || served_ >= kEventsInDocument) {
        begin();
    }
    state_->out = &out;
    ++served_;
    // An event can be well-formed and still leave the document at another depth, with a start or an end tag
    // too many. A parser that has met an error takes nothing more; the next event gets a new one.
    if (!feed(text_) || state_->depth != kInDocument) {
        state_->context.reset();
        return false;
    }
    return true;
}

} // namespace velmox
