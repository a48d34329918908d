#include "fuzz/xml_judge.h"

#include "util/text/wide_str.h"

#include <libxml/parser.h>
#include <memory>

namespace velmox::fuzz {

namespace {

struct FreeDocument
{
    void operator()(xmlDoc *document) const { xmlFreeDoc(document); }
};

Str fromXml(const xmlChar *text)
{
    return text == nullptr ? Str() : Str(reinterpret_cast<const char *>(text));
}

/// The text of an element that has nothing but text in it.
bool textOf(const xmlNode &element, Str &out)
{
    for (const xmlNode *node = element.children; node != nullptr; node = node->next) {
        if (node->type != XML_TEXT_NODE) {
            return false;
        }
        out << fromXml(node->content);
    }
    return true;
}

bool isLineEnd(const xmlNode &node)
{
    return node.type == XML_TEXT_NODE && fromXml(node.content) == "\n";
}

bool judgeEvent(const xmlNode &element, JudgedEvent &out)
{
    for (const xmlAttr *attribute = element.properties; attribute != nullptr; attribute = attribute->next) {
        Str &value = out.attributes[fromXml(attribute->name)];
        for (const xmlNode *node = attribute->children; node != nullptr; node = node->next) {
            value << fromXml(node->content);
        }
    }
    for (const xmlNode *node = element.children; node != nullptr; node = node->next) {
        if (node->type == XML_ELEMENT_NODE) {
            out.children.emplace_back(fromXml(node->name), Str());
            if (node->properties != nullptr || !textOf(*node, out.children.back().second)) {
                return false;
            }
        } else if (!isLineEnd(*node)) {
            return false;
        }
    }
    return true;
}

} // namespace

bool judgeStream(const Str &stream, std::vector<JudgedEvent> &out)
{
    const std::unique_ptr<xmlDoc, FreeDocument> document(
        xmlReadMemory(stream.data(), static_cast<int>(stream.size()), nullptr, "UTF-8",
                      XML_PARSE_NOERROR | XML_PARSE_NOWARNING | XML_PARSE_NONET));
    if (!document) {
        return false;
    }
    const xmlNode &root = *xmlDocGetRootElement(document.get());
    for (const xmlNode *node = root.children; node != nullptr; node = node->next) {
        if (isLineEnd(*node)) {
            continue;
        }
        out.emplace_back();
        if (node->type != XML_ELEMENT_NODE || fromXml(node->name) != "event" ||
            !judgeEvent(*node, out.back())) {
            return false;
        }
    }
    return fromXml(root.name) == "stream" && root.properties == nullptr;
}

Str presentable(const Str &text)
{
    WideStr wide = WideStr::fromUtf8(text);
    for (char16_t &unit : wide) {
        if (unit >= 0xFFFE) {
            unit = 0xFFFD;
        }
    }
    return Str::fromUtf16(wide);
}

} // namespace velmox::fuzz
