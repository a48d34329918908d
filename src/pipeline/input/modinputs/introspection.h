#pragma once

#include "pipeline/input/modinputs/scheme.h"
#include "pipeline/input/xml/xml_streaming_parser.h"

#include <functional>
#include <string_view>
#include <vector>

// What a script answers when it is asked: what it is, and what it thinks of a configuration.

namespace velmox {

/// The open elements of an XML document, outermost first. What is asked of it costs the same at any depth: a
/// script may print any document, and its depth must not make reading slow.
class ElementPath
{
public:
    /// False for a declaration, whose name begins with `?` or `!`: it is no element and has no end.
    bool enter(const Str &name);
    /// An end without a start is passed over.
    void leave();

    bool empty() const { return starts_.empty(); }

    // Good until the next element begins or ends.
    /// The names, with slashes between.
    std::string_view view() const { return path_.view(); }
    /// The same without the innermost element; there must be one, as for its name.
    std::string_view parent() const { return view().substr(0, starts_.size() > 1 ? starts_.back() - 1 : 0); }
    std::string_view name() const { return view().substr(starts_.back()); }

private:
    Str path_;
    /// Where each element's name begins in the path.
    std::vector<std::size_t> starts_;
};

/// What a script says of itself when it is asked with `--scheme`: texts by the names of their elements.
struct Introspection
{
    using Texts = std::map<Str, Str>;

    /// Whether there was a `scheme` element at all.
    bool found = false;
    Texts scheme;
    /// By the name of the argument.
    std::map<Str, Texts> args;
};

/// Reads a script's description of itself. Elements that are not known to stand where they do are passed
/// over, with what is in them, so that scripts may say more than this version knows.
class IntrospectXmlStreamingParser : public XmlStreamingParser
{
public:
    const Introspection &result() const { return result_; }

    void startElement(const Str &name) override;
    void endElement() override;
    void attributeName(const Str &name) override { isNameAttribute_ = name == "name"; }
    void attributeValue(const Str &value) override;
    void characters(const Str &piece) override { text_.append(piece); }

private:
    /// Enters the argument whose element ends; one without a name is told and dropped.
    void endArgument();
    /// Keeps the text of the innermost element, which stands at `path`.
    void store(std::string_view path);

    Introspection result_;
    ElementPath path_;
    /// Text of the innermost element, which counts when it holds no other element.
    Str text_;
    bool isLeaf_ = false;
    bool isNameAttribute_ = false;
    /// The open `arg`.
    Str argName_;
    Introspection::Texts arg_;
};

/// Reads a script's answer to `--validate-arguments`: an element `error` whose element `message` says what is
/// wrong. Of several messages the first counts.
class ScriptValidationXmlStreamingParser : public XmlStreamingParser
{
public:
    /// Empty if the script gave none.
    const Str &message() const { return message_; }

    void startElement(const Str &name) override { path_.enter(name); }
    void endElement() override;
    void characters(const Str &piece) override;

private:
    ElementPath path_;
    Str text_;
    Str message_;
};

/// Looks for the script that an introspection's `script` names.
using ScriptFinder = std::function<ScriptCommand(const ScriptName &script)>;

/// Brings what a script says of itself into its scheme, which holds what the file of its parameters says.
/// What the script leaves out, or leaves empty, stays as it is.
///
/// Throws ModularInputsException at what it may not say.
void mergeIntrospection(const Introspection &introspection, const SchemeSpec &spec,
                        const ScriptFinder &findScript, Scheme &scheme);

} // namespace velmox
