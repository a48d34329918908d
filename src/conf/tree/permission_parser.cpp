#include "conf/tree/permission_parser.h"

#include "util/log/logger.h"

namespace velmox {

namespace {

Logger log("ConfAcl");

/// Bytes with a meaning of their own in a permission text.
constexpr CharSet kReserved(":,[]%+");

/// A machine that is fed the text byte by byte.
class PermissionParser
{
public:
    explicit PermissionParser(ConfAcl::Capabilities &out) : out_(out) {}

    /// False when the byte cannot stand here.
    bool take(char byte)
    {
        switch (state_) {
        case State::Name:
            return takeInName(byte);
        case State::BeforeList:
            return takeBeforeList(byte);
        case State::Role:
            return takeInRole(byte);
        default:
            return takeAfterList(byte);
        }
    }

    bool finish(const Str &text) const
    {
        if (state_ == State::BeforeList || state_ == State::Role) {
            log.warn("Parsing found an incomplete permission string [%d]: %s", static_cast<int>(state_),
                     text.c_str());
            return false;
        }
        if (!buffer_.trimmed().empty()) {
            log.warn("Unparsed terminating characters '%s' in: %s", buffer_.c_str(), text.c_str());
            return false;
        }
        return true;
    }

private:
    enum class State
    {
        Name = 0,
        BeforeList = 1,
        Role = 2,
        AfterList = 3,
    };

    bool takeInName(char byte)
    {
        if (byte != ':') {
            buffer_ += byte;
            return true;
        }
        name_ = buffer_.trimmed();
        out_.try_emplace(name_);
        buffer_.clear();
        state_ = State::BeforeList;
        return true;
    }

    bool takeBeforeList(char byte)
    {
        if (byte == '[') {
            state_ = State::Role;
            return true;
        }
        return CharSet::blanks().contains(byte);
    }

    bool takeInRole(char byte)
    {
        if (byte != ',' && byte != ']') {
            buffer_ += byte;
            return true;
        }
        addRole(buffer_.trimmed());
        buffer_.clear();
        state_ = byte == ']' ? State::AfterList : State::Role;
        return true;
    }

    bool takeAfterList(char byte)
    {
        if (byte == ',') {
            state_ = State::Name;
            return true;
        }
        return CharSet::blanks().contains(byte);
    }

    void addRole(Str role)
    {
        if (!role.urlDecode()) {
            log.error("Cannot decode role: %s", role.c_str());
            return;
        }
        out_[name_].insert(role.lowered());
    }

    ConfAcl::Capabilities &out_;
    State state_ = State::Name;
    Str buffer_;
    Str name_;
};

/// Blanks at the ends of a role would pass for those around it.
bool needsCode(const Str &role, std::size_t at)
{
    const bool atEnd = at == 0 || at + 1 == role.size();
    return kReserved.contains(role[at]) || (atEnd && CharSet::blanks().contains(role[at]));
}

void appendRole(Str &out, const Str &role)
{
    for (std::size_t at = 0; at < role.size(); ++at) {
        if (needsCode(role, at)) {
            out.appendFormat("%%%02X", static_cast<unsigned>(static_cast<unsigned char>(role[at])));
        } else {
            out += role[at];
        }
    }
}

} // namespace

bool parsePermissions(const Str &text, ConfAcl::Capabilities &out)
{
    PermissionParser parser(out);
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (!parser.take(text[at])) {
            log.warn("Permission parsing failed at %u in string: %s", static_cast<unsigned>(at),
                     text.c_str());
            return false;
        }
    }
    return parser.finish(text);
}

Str permissionText(const ConfAcl::Capabilities &capabilities)
{
    Str text;
    for (const auto &[name, roles] : capabilities) {
        text << (text.empty() ? "" : ", ") << name << " : [ ";
        const char *separator = "";
        for (const Str &role : roles) {
            text << separator;
            appendRole(text, role);
            separator = ", ";
        }
        text << " ]";
    }
    return text;
}

} // namespace velmox
