#include "conf/tree/conf_path_metadata.h"

namespace velmox {

namespace {

/// Equal metadata read from two files is not one object.
template <class Value>
bool sameContent(const std::shared_ptr<const Value> &a, const std::shared_ptr<const Value> &b)
{
    return a == b || (a && b && *a == *b);
}

template <class Field>
void fill(Field &field, const Field &from)
{
    if (!field) {
        field = from;
    }
}

template <class Field>
void replace(Field &field, const Field &with)
{
    if (with) {
        field = with;
    }
}

} // namespace

void ConfPathMetadata::setOwner(const Str &name)
{
    owner = name.empty() ? nullptr : std::make_shared<const Str>(name.lowered());
}

void ConfPathMetadata::setImports(StrVector apps)
{
    imports = std::make_shared<const StrVector>(std::move(apps));
}

bool ConfPathMetadata::empty() const
{
    return *this == ConfPathMetadata();
}

bool ConfPathMetadata::operator==(const ConfPathMetadata &other) const
{
    return modtime == other.modtime && equalsButTime(other);
}

bool ConfPathMetadata::equalsButTime(const ConfPathMetadata &other) const
{
    // Permissions are interned: one object is what equal ones have in common.
    return access == other.access && exported == other.exported && sameContent(owner, other.owner) &&
           sameContent(imports, other.imports) && removable == other.removable &&
           sameContent(version, other.version);
}

void ConfPathMetadata::overlay(const ConfPathMetadata &deeper)
{
    // Rights and owner are handed down to what is below. The rest tells of the one node where it stands:
    // whether a key can be removed says nothing of its stanza's other keys.
    replace(access, deeper.access);
    replace(owner, deeper.owner);
    replace(imports, deeper.imports);
    if (deeper.exported != ConfExport::NotSet) {
        exported = deeper.exported;
    }
    removable = deeper.removable;
    modtime = deeper.modtime;
    version = deeper.version;
}

void ConfPathMetadata::fillFrom(const ConfPathMetadata &other)
{
    fill(access, other.access);
    fill(owner, other.owner);
    fill(imports, other.imports);
    fill(removable, other.removable);
    fill(modtime, other.modtime);
    fill(version, other.version);
    if (exported == ConfExport::NotSet) {
        exported = other.exported;
    }
}

Str ConfPathMetadata::toStr() const
{
    Str text = "{ ";
    text << (access ? access->toStr() : Str()) << " }";
    // Logs have words of their own for this, which are not those of the files, "system" and "none".
    if (exported != ConfExport::NotSet) {
        text << ", export: " << (exported == ConfExport::System ? "global" : "app");
    }
    if (imports) {
        text << ", imports: {";
        for (const Str &app : *imports) {
            text << " " << app;
        }
        text << " }";
    }
    if (owner) {
        text << ", owner: " << *owner;
    }
    if (removable) {
        text << ", removable: " << (*removable ? "yes" : "no");
    }
    if (modtime) {
        text << ", modtime: " << modtime->toStr();
    }
    return text;
}

} // namespace velmox
