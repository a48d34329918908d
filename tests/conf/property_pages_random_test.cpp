#include "conf/file/ini_file.h"
#include "conf/property_pages_registry.h"
#include "conf/setup/shared_conf_services.h"
#include "tests/conf/conf_tree.h"
#include "tests/support/captured_log.h"

#include <random>
#include <set>
#include <tuple>

namespace velmox {
namespace {

using testing::CapturedLog;
using testing::ConfTree;

using Settings = std::map<Str, std::map<Str, Str>>;

/// A conf file of the type "t".
struct Layer
{
    Str user;
    Str app;
    Str folder;
    bool isLocal;
    Settings settings;

    Str file() const
    {
        return Str::fromFormat("%s/%s/t.conf", folder.c_str(), isLocal ? "local" : "default");
    }
    Str text() const
    {
        Str text;
        for (const auto &[stanza, keys] : settings) {
            text << "[" << stanza << "]\n";
            for (const auto &[key, value] : keys) {
                text << key << " = " << value << "\n";
            }
        }
        return text;
    }
};

/// A small independent model of the rules of precedence, over random layers.
class Model
{
public:
    explicit Model(unsigned seed) : random_(seed)
    {
        addLayer("nobody", "system", "system", true);
        for (const char *const owner : {"u/a", "u/b", "v/a"}) {
            addLayer(Str(owner, 1), owner + 2, Str::concat("users/", owner), true);
        }
        for (const bool isLocal : {true, false}) {
            for (const char *const app : kApps) {
                addLayer("nobody", app, Str::concat("apps/", app), isLocal);
            }
        }
        addLayer("nobody", "system", "system", false);
        for (const char *const app : kApps) {
            makeMetadata(app);
        }
        isDisabled_ = oneIn(4);
    }

    void put(ConfTree &tree) const
    {
        for (const Layer &layer : layers_) {
            if (!layer.settings.empty()) {
                tree.put(layer.file().c_str(), layer.text());
            }
        }
        for (const auto &[app, text] : metadata_) {
            tree.put(Str::fromFormat("apps/%s/metadata/default.meta", app.c_str()).c_str(), text);
        }
        if (isDisabled_) {
            tree.put("apps/c/default/app.conf", "[install]\nstate = disabled\n");
        }
    }

    /// What a reader sees; without an app, what the order of the layers alone makes of them.
    Settings view(const Str &app, const Str &user) const
    {
        Settings view;
        if (app.empty()) {
            for (const Layer &layer : layers_) {
                if (layer.user == "nobody" && !isOut(layer.app)) {
                    fill(view, layer.settings);
                }
            }
        } else {
            view = ranked(app, user);
        }
        if (const auto found = view.find("default"); found != view.end()) {
            const std::map<Str, Str> inherited = found->second;
            for (auto &[stanza, keys] : view) {
                keys.insert(inherited.begin(), inherited.end());
            }
        }
        return view;
    }

    Layer &local(const Str &user, const Str &app)
    {
        for (Layer &layer : layers_) {
            if (layer.isLocal && layer.user == user && layer.app == app) {
                return layer;
            }
        }
        throw std::out_of_range("no such layer");
    }
    const std::vector<Layer> &layers() const { return layers_; }
    bool oneIn(unsigned n) { return random_() % n == 0; }
    template <class Map>
    const Str &anyKey(const Map &map)
    {
        return std::next(map.begin(), static_cast<std::ptrdiff_t>(random_() % map.size()))->first;
    }

private:
    static constexpr const char *kApps[] = {"a", "b", "c"};
    static constexpr const char *kStanzas[] = {"default", "r", "s"};
    static constexpr const char *kKeys[] = {"i", "j", "k"};
    using Rank = std::tuple<int, std::int64_t>;

    bool isOut(const Str &app) const { return isDisabled_ && app == "c"; }

    void addLayer(const Str &user, const Str &app, const Str &folder, bool isLocal)
    {
        Layer layer{user, app, folder, isLocal, {}};
        for (const char *const stanza : kStanzas) {
            if (oneIn(2)) {
                layer.settings[stanza];
                for (const char *const key : kKeys) {
                    if (oneIn(2)) {
                        layer.settings[stanza][key] = Str::fromFormat("v%u", next_++);
                    }
                }
            }
        }
        layers_.push_back(std::move(layer));
    }

    void makeMetadata(const Str &app)
    {
        Str text;
        Str imports;
        for (const char *const other : kApps) {
            if (app != "c" && !oneIn(3)) {
                imports << (imports.empty() ? "" : ", ") << other;
                imports_[app].push_back(other);
            }
        }
        makeExport(app, "", text, imports);
        makeExport(app, "t", text);
        for (const char *const stanza : kStanzas) {
            makeExport(app, Str::concat("t/", stanza), text);
            makeExport(app, Str::fromFormat("t/%s/%s", stanza, kKeys[0]), text);
        }
        metadata_[app] = text;
    }

    void makeExport(const Str &app, const Str &header, Str &text, const Str &imports = Str())
    {
        text << "[" << header << "]\n";
        if (!imports.empty()) {
            text << "import = " << imports << "\n";
        }
        if (oneIn(5)) {
            const bool exported = oneIn(2);
            text << "export = " << (exported ? "system\n" : "none\n");
            exports_[app][header] = exported;
        }
    }

    bool isExported(const Str &app, const Str &stanza, const Str *key) const
    {
        const auto found = exports_.find(app);
        if (found == exports_.end()) {
            return false;
        }
        StrVector headers{"", "t", Str::concat("t/", stanza)};
        if (key != nullptr) {
            headers.push_back(Str::fromFormat("t/%s/%s", stanza.c_str(), key->c_str()));
        }
        bool exported = false;
        for (const Str &header : headers) {
            const auto own = found->second.find(header);
            exported = own == found->second.end() ? exported : own->second;
        }
        return exported;
    }

    static void fill(Settings &view, const Settings &more)
    {
        for (const auto &[stanza, keys] : more) {
            view[stanza].insert(keys.begin(), keys.end());
        }
    }

    std::map<Str, std::int64_t> generations(const Str &app) const
    {
        std::map<Str, std::int64_t> found{{app, 0}};
        StrVector last{app};
        for (std::int64_t generation = 1; !last.empty(); ++generation) {
            StrVector next;
            for (const Str &importer : last) {
                if (const auto imports = imports_.find(importer); imports != imports_.end()) {
                    for (const Str &import : imports->second) {
                        if (found.emplace(import, generation).second) {
                            next.push_back(import);
                        }
                    }
                }
            }
            last = next;
        }
        return found;
    }

    /// Ranks all that stands at the same place; of equals the later user and app win.
    Settings ranked(const Str &app, const Str &user) const
    {
        std::map<std::pair<Str, Str>, Settings> places;
        for (const Layer &layer : layers_) {
            fill(places[{layer.user, layer.app}], layer.settings);
        }
        const auto steps = generations(app);
        Settings view;
        std::map<std::pair<Str, Str>, Rank> ranks;
        for (const auto &[place, settings] : places) {
            const auto &[owner, from] = place;
            const bool isOwnPlace = from == app && (owner == "nobody" || owner == user);
            if (isOut(from) ||
                (user.empty() ? !(isOwnPlace && owner == "nobody") : !(isOwnPlace || owner == "nobody"))) {
                continue;
            }
            for (const auto &[stanza, keys] : settings) {
                const auto rankOf = [&](const Str *key) {
                    const bool exported = isExported(from, stanza, key);
                    const bool isImport = steps.contains(from);
                    return from == "system"    ? Rank(1, 0)
                           : owner != "nobody" ? Rank(6, 0)
                           : from == app       ? Rank(exported ? 4 : 5, 0)
                           : exported          ? Rank(2, 0)
                           : isImport          ? Rank(3, -steps.at(from))
                                               : Rank(0, 0);
                };
                if (rankOf(nullptr) > Rank(0, 0)) {
                    view[stanza];
                }
                for (const auto &[key, value] : keys) {
                    const Rank rank = rankOf(&key);
                    Rank &best = ranks[{stanza, key}];
                    if (rank > Rank(0, 0) && rank >= best) {
                        best = rank;
                        view[stanza][key] = value;
                    }
                }
            }
        }
        return view;
    }

    std::mt19937 random_;
    unsigned next_ = 0;
    std::vector<Layer> layers_;
    std::map<Str, Str> metadata_;
    std::map<Str, std::map<Str, bool>> exports_;
    std::map<Str, StrVector> imports_;
    bool isDisabled_ = false;
};

Str textOf(const Settings &settings)
{
    return Layer{{}, {}, {}, false, settings}.text();
}

Str textOf(const Stanzas &stanzas)
{
    Settings settings;
    for (const auto &[name, stanza] : stanzas) {
        settings[name];
        for (const auto &[key, property] : stanza.properties) {
            settings[name][key] = property.value;
        }
    }
    return textOf(settings);
}

struct Reader
{
    const char *app;
    const char *user;
};

constexpr Reader kReaders[] = {{"", ""},   {"a", ""},  {"b", ""},       {"system", ""},
                               {"a", "u"}, {"b", "u"}, {"a", "nobody"}, {"b", "v"}};

void expectEqual(ConfTree &tree, const Model &model)
{
    for (const auto &[app, user] : kReaders) {
        EXPECT_EQ(textOf(tree.read("t", app, user)), textOf(model.view(app, user)))
            << "user " << user << " app " << app;
    }
}

/// Every conf file holds what its layer holds, key by key.
void expectFiles(const ConfTree &tree, const Model &model)
{
    for (const Layer &layer : model.layers()) {
        const Str file = layer.file();
        Settings found;
        if (tree.has(file.c_str())) {
            const IniFile image = tree.image(file.c_str());
            for (const auto &item : image) {
                found[item.key];
                for (const auto setting : item.value) {
                    found[item.key][Str(setting.key)] = Str(setting.value);
                }
            }
        }
        EXPECT_EQ(textOf(found), textOf(layer.settings)) << file.c_str();
    }
}

/// Reads in one context, changes some of a stanza and writes it in a context with the app that provides it,
/// whose view may be stale.
void changeSomething(ConfTree &tree, Model &model, const Reader &reader, unsigned round)
{
    Stanzas stanzas = tree.read("t", reader.app, reader.user);
    if (stanzas.empty()) {
        return;
    }
    const Str name = model.anyKey(stanzas);
    PropertiesMap &stanza = stanzas.at(name);
    const Str app = reader.app[0] == '\0' ? stanza.appName() : Str(reader.app);
    const Str user = reader.user[0] == '\0' ? Str("nobody") : Str(reader.user);
    Settings &expected = model.local(user, app).settings;
    for (const char *const key : {"i", "k", "x"}) {
        if (key[0] == 'x' || model.oneIn(2)) {
            stanza.set(key, Str::fromFormat("w%u", round));
            expected[name][key] = stanza.get(key);
        }
    }
    if (model.oneIn(2)) {
        tree.setup().shared().pages().invalidateAll();
    }
    tree.pages("t", app, reader.user).write(app, name, stanza, false);
}

TEST(PropertyPagesRandom, ViewsAreWhatTheRulesMakeOfTheLayersAndWritesTouchOnlyWhatChanged)
{
    const CapturedLog quiet;
    for (unsigned seed = 1; seed <= 12 && !HasFailure(); ++seed) {
        SCOPED_TRACE(seed);
        Model model(seed);
        ConfTree tree;
        model.put(tree);
        expectEqual(tree, model);
        unsigned round = 0;
        for (const Reader &reader : {Reader{"", ""}, Reader{"a", ""}, Reader{"a", "u"}, Reader{"", ""}}) {
            changeSomething(tree, model, reader, round++);
            expectEqual(tree, model);
        }
        expectFiles(tree, model);
    }
}

} // namespace
} // namespace velmox
