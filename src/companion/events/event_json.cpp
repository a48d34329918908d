#include "companion/events/event_json.h"

#include <charconv>
#include <cstdint>
#include <nlohmann/json.hpp>

namespace velmox {

namespace {

using Json = nlohmann::ordered_json;

static_assert(kFieldCount <= 32, "a shape has a bit for each field");

/// The node of a field, with the objects that lead there made where they are missing: `registry.data.type` is
/// a member of an object in an object.
Json &nodeOf(Json &root, std::string_view name)
{
    Json *node = &root;
    for (std::size_t dot = name.find('.'); dot != std::string_view::npos; dot = name.find('.')) {
        node = &(*node)[std::string(name.substr(0, dot))];
        name.remove_prefix(dot + 1);
    }
    return (*node)[std::string(name)];
}

/// Into the string that the node has already, whose memory is used again.
void setText(Json &node, std::string_view text)
{
    if (node.is_string()) {
        node.get_ref<std::string &>().assign(text);
    } else {
        node = text;
    }
}

void setList(Json &node, std::span<const std::string_view> texts)
{
    if (!node.is_array()) {
        node = Json::array();
    }
    auto &list = node.get_ref<Json::array_t &>();
    list.resize(texts.size());
    for (std::size_t at = 0; at < texts.size(); ++at) {
        setText(list[at], texts[at]);
    }
}

/// A process number is one of 32 bits; digits that are no number of 64 stay a text, so that a damaged stream
/// still gives valid JSON.
void setNumber(Json &node, std::string_view text)
{
    std::int64_t number = 0;
    const char *const end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data(), end, number);
    if (parsed.ec == std::errc() && parsed.ptr == end) {
        node = number;
    } else {
        node = text;
    }
}

} // namespace

struct EventJson::Shape
{
    Json root = Json::object();
    /// Nodes of `root`, in the order of the fields; null for a field that is not there.
    std::array<Json *, kFieldCount> nodes{};
};

EventJson::EventJson() = default;

EventJson::~EventJson() = default;

EventJson::Shape &EventJson::shapeOf(const EventFields &fields)
{
    std::uint32_t bits = 0;
    for (std::size_t at = 0; at < kFieldCount; ++at) {
        bits |= fields.texts(static_cast<Field>(at)).empty() ? 0U : 1U << at;
    }
    std::unique_ptr<Shape> &shape = shapes_[bits];
    if (shape != nullptr) {
        return *shape;
    }
    shape = std::make_unique<Shape>();
    // An object's members move as it grows, so the nodes are found once all are there.
    for (const bool isComplete : {false, true}) {
        for (std::size_t at = 0; at < kFieldCount; ++at) {
            if ((bits >> at & 1) != 0) {
                Json &node = nodeOf(shape->root, fieldName(static_cast<Field>(at)));
                shape->nodes[at] = isComplete ? &node : nullptr;
            }
        }
    }
    return *shape;
}

void EventJson::append(const EventFields &fields, std::string &out)
{
    Shape &shape = shapeOf(fields);
    for (std::size_t at = 0; at < kFieldCount; ++at) {
        if (shape.nodes[at] == nullptr) {
            continue;
        }
        const auto field = static_cast<Field>(at);
        switch (fieldForm(field)) {
        case FieldForm::Text:
            setText(*shape.nodes[at], fields.text(field));
            break;
        case FieldForm::Number:
            setNumber(*shape.nodes[at], fields.text(field));
            break;
        case FieldForm::List:
            setList(*shape.nodes[at], fields.texts(field));
            break;
        }
    }
    out += shape.root.dump();
    out += '\n';
}

} // namespace velmox
