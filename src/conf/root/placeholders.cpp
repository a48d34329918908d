#include "conf/root/placeholders.h"

#include "util/match/regex.h"

#include <algorithm>
#include <optional>
#include <vector>

namespace velmox {

namespace {

/// A name between two dollar signs, with options in braces behind it. Neither sign may stand beside another:
/// a doubled one is text.
constexpr char kPlaceholder[] = R"((?<!\$)\$([\w.*#\-]+)(?:\{([^}]+)\})?\$(?!\$))";

const Regex &placeholderRegex()
{
    static const Regex regex(kPlaceholder, true, 0);
    return regex;
}

[[noreturn]] void fail(const Str &name, const Str &reason)
{
    throw PlaceholderException(
        Str::fromFormat("Error while replacing variable name='%s'. %s", name.c_str(), reason.c_str()));
}

struct Options
{
    Str dflt;
    Str delim = ",";
    Str required = "no";
    Str recurse = "yes";
    Str format = "$KEY=$VAL";
    Str keyRegex;
};

struct OptionName
{
    const char *name;
    Str Options::*value;
};

constexpr OptionName kOptionNames[] = {
    {"default", &Options::dflt},    {"delim", &Options::delim},   {"required", &Options::required},
    {"recurse", &Options::recurse}, {"format", &Options::format}, {"key_regex", &Options::keyRegex},
};

void setOption(Options &options, const Str &variable, std::string_view option)
{
    const std::size_t equals = option.find('=');
    const Str name = Str(option.substr(0, equals)).trimmed();
    for (const OptionName &known : kOptionNames) {
        // A name without a sign is no option either.
        if (name == known.name && equals != option.npos) {
            Str &value = options.*known.value;
            value = Str(option.substr(equals + 1));
            value.trim();
            value.unquote('"');
            return;
        }
    }
    fail(variable, Str::fromFormat("Unknown option: %s", name.c_str()));
}

/// Where the option at the front ends: at a comma outside quotes.
std::size_t optionLength(std::string_view options)
{
    bool quoted = false;
    for (std::size_t at = 0; at < options.size(); ++at) {
        quoted ^= options[at] == '"';
        if (options[at] == ',' && !quoted) {
            return at;
        }
    }
    return options.size();
}

Options parseOptions(const Str &variable, std::string_view text)
{
    Options options;
    while (!text.empty()) {
        const std::size_t length = optionLength(text);
        setOption(options, variable, text.substr(0, length));
        text.remove_prefix(std::min(length + 1, text.size()));
    }
    return options;
}

bool isWildcard(const Str &name)
{
    return name.view().find_first_of("*#") != std::string_view::npos;
}

Regex nameRegex(const Str &wildcard)
{
    Str pattern;
    Regex::escape(wildcard, pattern);
    // Of the escaped name only the two wildcards get a meaning back.
    pattern.replaceAll("\\*", ".*");
    pattern.replaceAll("\\#", "\\d+");
    return Regex(pattern, false, 0);
}

Regex keyRegex(const Str &name, const Options &options)
{
    try {
        return Regex(options.keyRegex.empty() ? Str(".*") : options.keyRegex, false, 0);
    } catch (const RegexException &exception) {
        fail(name, exception.message());
    }
}

/// One expansion of a template, and of the values that are templates themselves.
class Expander
{
public:
    explicit Expander(const PlaceholderVariables &variables) : variables_(variables) {}

    Str expand(const Str &text)
    {
        // `Regex` takes valid UTF-8 alone; what is none has no placeholders.
        const bool searchable = Str::isValidUtf8(text.data(), text.size());
        Str out;
        StrSegment rest(text);
        RegexMatch match;
        while (searchable && placeholderRegex().match(rest, &match, true)) {
            appendLiteral(out, match.prefix());
            out += fill(Str(match.group(1).view()), match.group(2).view());
        }
        appendLiteral(out, rest);
        return out;
    }

private:
    static void appendLiteral(Str &out, const StrSegment &text)
    {
        Str literal(text.view());
        literal.replaceAll("$$", "$");
        out += literal;
    }

    Str fill(const Str &name, std::string_view optionText)
    {
        const Options options = parseOptions(name, optionText);
        const bool several = isWildcard(name) || !options.keyRegex.empty();
        const std::optional<Str> value = several ? fillSeveral(name, options) : fillOne(name, options);
        if (value) {
            return *value;
        }
        // A word that is neither yes nor no counts as yes: better an error than a place that nobody meant.
        if (options.required.toBool(false, true)) {
            fail(name, "Could not find variable in the argument map.");
        }
        return options.dflt;
    }

    std::optional<Str> fillOne(const Str &name, const Options &options)
    {
        const auto variable = variables_.find(name);
        if (variable == variables_.end()) {
            return std::nullopt;
        }
        return valueOf(variable->first, variable->second, options);
    }

    std::optional<Str> fillSeveral(const Str &name, const Options &options)
    {
        const Regex names = nameRegex(name);
        const Regex keys = keyRegex(name, options);
        // Nothing at all is told from an empty list: it is what the default and the error are for.
        std::optional<Str> list;
        for (const auto &[key, value] : variables_) {
            if (names.matchesAll(key) && keys.matchesAll(key)) {
                list = list ? Str::concat(*list, options.delim) : Str();
                *list += formatted(key, valueOf(key, value, options), options);
            }
        }
        return list;
    }

    static Str formatted(const Str &key, const Str &value, const Options &options)
    {
        Str item = options.format;
        item.replaceAll("$KEY", key);
        item.replaceAll("$VAL", value);
        return item;
    }

    Str valueOf(const Str &name, const Str &value, const Options &options)
    {
        if (!options.recurse.toBool(true, true)) {
            return value;
        }
        // Through others too: whatever is open here would be expanded without an end.
        if (std::find(open_.begin(), open_.end(), name) != open_.end()) {
            fail(name, "The variable refers to itself.");
        }
        open_.push_back(name);
        Str expanded = expand(value);
        open_.pop_back();
        return expanded;
    }

    const PlaceholderVariables &variables_;
    /// The variables whose values are being expanded.
    StrVector open_;
};

} // namespace

Str expandPlaceholders(const Str &text, const PlaceholderVariables &variables)
{
    return Expander(variables).expand(text);
}

Str placeholderLiteral(const Str &text)
{
    Str literal = text;
    literal.replaceAll("$", "$$");
    return literal;
}

} // namespace velmox
