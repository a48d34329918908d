#include "conf/file/ini_file.h"
#include "conf/pages/property_pages_registry.h"
#include "conf/store/shared_conf_services.h"
#include "tests/conf/conf_root.h"

#include <random>
#include <set>
#include <tuple>

namespace velmox {
namespace {

using namespace testing;

using Settings = std::map<Str, std::map<Str, Str>>;

/// A conf file of the type "t".
struct Layer
{
    Str user, app, file;
    Settings settings;
};

Str textOf(const Settings &settings)
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

/// A small independent model of the rules of precedence, over random layers.
class Model
{
public:
    explicit Model(unsigned seed) : random_(seed)
    {
        add("nobody", "system", "system/local");
        for (const char *const owner : {"u/a", "u/b", "v/a"}) {
            add(Str(owner, 1), owner + 2, Str::fromFormat("users/%s/local", owner));
        }
        for (const char *const part : {"local", "default"}) {
            for (const char *const app : kApps) {
                add("nobody", app, Str::fromFormat("apps/%s/%s", app, part));
            }
        }
        add("nobody", "system", "system/default");
        for (const char *const app : kApps) {
            makeMetadata(app);
        }
        isDisabled_ = oneIn(4);
    }

    void put(const ConfRoot &root) const
    {
        for (const Layer &layer : layers) {
            if (!layer.settings.empty()) {
                root.write(layer.file, textOf(layer.settings));
            }
        }
        for (const auto &[app, text] : metadata_) {
            root.write(Str::fromFormat("apps/%s/metadata/default.meta", app.c_str()), text);
        }
        if (isDisabled_) {
            root.write("apps/c/default/app.conf", "[install]\nstate = disabled\n");
        }
    }

    /// What a reader sees; without an app, what the order of the layers alone makes of them.
    Settings view(const Str &app, const Str &user) const
    {
        Settings view;
        std::map<std::pair<Str, Str>, Rank> best;
        const auto steps = generations(app);
        for (const Layer &layer : layers) {
            for (const auto &[stanza, keys] : isVisible(layer, app, user) ? layer.settings : Settings()) {
                const auto rankOf = [&](const Str *key) {
                    const int level =
                        app.empty() ? 1 : levelOf(layer, app, steps, isExported(layer.app, stanza, key));
                    return app.empty() ? Rank(1, 0, "", "", &layers.front() - &layer)
                                       : Rank(level, level == 3 ? -steps.at(layer.app) : 0, layer.user,
                                              layer.app, &layers.front() - &layer);
                };
                if (std::get<int>(rankOf(nullptr)) > 0) {
                    view[stanza];
                }
                for (const auto &[key, value] : keys) {
                    const Rank rank = rankOf(&key);
                    if (std::get<int>(rank) > 0 && rank > best[{stanza, key}]) {
                        best[{stanza, key}] = rank;
                        view[stanza][key] = value;
                    }
                }
            }
        }
        const std::map<Str, Str> inherited =
            view.contains("default") ? view["default"] : std::map<Str, Str>();
        for (auto &[stanza, keys] : view) {
            keys.insert(inherited.begin(), inherited.end());
        }
        return view;
    }

    /// The settings to which a user's changes go.
    Settings &local(const Str &user, const Str &app)
    {
        return std::ranges::find_if(layers,
                                    [&](const Layer &layer) {
                                        return layer.user == user && layer.app == app &&
                                               layer.file.contains("/local/");
                                    })
            ->settings;
    }
    bool oneIn(unsigned n) { return random_() % n == 0; }
    template <class Map>
    const Str &anyKey(const Map &map)
    {
        return std::next(map.begin(), static_cast<std::ptrdiff_t>(random_() % map.size()))->first;
    }

    std::vector<Layer> layers;

private:
    static constexpr const char *kApps[] = {"a", "b", "c"};
    static constexpr const char *kStanzas[] = {"default", "r", "s"};
    static constexpr const char *kKeys[] = {"i", "j", "k"};
    /// The level, the closeness of an import, the later user and app, and the earlier layer win.
    using Rank = std::tuple<int, std::int64_t, Str, Str, std::ptrdiff_t>;
    using Generations = std::map<Str, std::int64_t>;

    bool isVisible(const Layer &layer, const Str &app, const Str &user) const
    {
        const bool isShared = layer.user == "nobody";
        const bool isOwn = layer.app == app && (isShared || layer.user == user);
        const bool isOff = isDisabled_ && layer.app == "c";
        return !isOff && (app.empty() ? isShared : user.empty() ? isOwn && isShared : isOwn || isShared);
    }

    static int levelOf(const Layer &layer, const Str &app, const Generations &steps, bool exported)
    {
        return layer.app == "system"       ? 1
               : layer.user != "nobody"    ? 6
               : layer.app == app          ? (exported ? 4 : 5)
               : exported                  ? 2
               : steps.contains(layer.app) ? 3
                                           : 0;
    }

    void add(const Str &user, const Str &app, const Str &folder)
    {
        Settings settings;
        for (const char *const stanza : kStanzas) {
            if (oneIn(2)) {
                settings[stanza];
                for (const char *const key : kKeys) {
                    if (oneIn(2)) {
                        settings[stanza][key] = Str::fromFormat("v%u", next_++);
                    }
                }
            }
        }
        layers.push_back({user, app, Str(folder) << "/t.conf", settings});
    }

    void makeMetadata(const Str &app)
    {
        Str &text = metadata_[app] = "[]\nimport = ";
        for (const char *const other : kApps) {
            if (app != "c" && !oneIn(3)) {
                text << other << ", ";
                imports_[app].push_back(other);
            }
        }
        text << "\n";
        makeExport(app, "");
        makeExport(app, "t");
        for (const char *const stanza : kStanzas) {
            makeExport(app, Str("t/") << stanza);
            makeExport(app, Str::fromFormat("t/%s/%s", stanza, kKeys[0]));
        }
    }

    void makeExport(const Str &app, const Str &header)
    {
        if (oneIn(5)) {
            const bool exported = exports_[{app, header}] = oneIn(2);
            metadata_[app] << "[" << header << "]\nexport = " << (exported ? "system\n" : "none\n");
        }
    }

    bool isExported(const Str &app, const Str &stanza, const Str *key) const
    {
        bool exported = false;
        const Str ofStanza = Str("t/") << stanza;
        for (const Str &header : {Str(), Str("t"), ofStanza, key ? Str(ofStanza) << "/" << *key : ofStanza}) {
            const auto found = exports_.find({app, header});
            exported = found == exports_.end() ? exported : found->second;
        }
        return exported;
    }

    Generations generations(const Str &app) const
    {
        Generations found{{app, 0}};
        for (std::int64_t generation = 1; generation < 4; ++generation) {
            for (const auto &[importer, of] : std::map(found)) {
                if (of == generation - 1 && imports_.contains(importer)) {
                    for (const Str &import : imports_.at(importer)) {
                        found.emplace(import, generation);
                    }
                }
            }
        }
        return found;
    }

    std::mt19937 random_;
    unsigned next_ = 0;
    std::map<Str, Str> metadata_;
    std::map<std::pair<Str, Str>, bool> exports_;
    std::map<Str, StrVector> imports_;
    bool isDisabled_ = false;
};

Settings settingsOf(const Stanzas &stanzas)
{
    Settings settings;
    for (const auto &[name, stanza] : stanzas) {
        settings[name];
        for (const auto &[key, property] : stanza.properties) {
            settings[name][key] = property.value;
        }
    }
    return settings;
}

struct Reader
{
    const char *app;
    const char *user;
};

constexpr Reader kReaders[] = {{"", ""},   {"a", ""},  {"b", ""},       {"system", ""},
                               {"a", "u"}, {"b", "u"}, {"a", "nobody"}, {"b", "v"}};

void expectViews(const ConfRoot &root, const Model &model)
{
    for (const auto &[app, user] : kReaders) {
        EXPECT_EQ(textOf(settingsOf(root.stanzas("t", app, user))), textOf(model.view(app, user)))
            << "user " << user << " app " << app;
    }
}

/// Every conf file holds what its layer holds, key by key.
void expectFiles(const ConfRoot &root, const Model &model)
{
    for (const Layer &layer : model.layers) {
        Settings found;
        if (root.has(layer.file)) {
            const IniFile image(root / layer.file);
            for (const auto &[name, stanza] : image) {
                found[name];
                for (const auto &[key, value, entry] : stanza) {
                    found[name][Str(key)] = Str(value);
                }
            }
        }
        EXPECT_EQ(textOf(found), textOf(layer.settings)) << layer.file.c_str();
    }
}

/// Reads in one context, changes some of a stanza and writes it in a context with the app that provides it,
/// whose view may be stale.
void changeSomething(const ConfRoot &root, Model &model, const Reader &reader, unsigned round)
{
    Stanzas stanzas = root.stanzas("t", reader.app, reader.user);
    if (stanzas.empty()) {
        return;
    }
    const Str name = model.anyKey(stanzas);
    PropertiesMap &stanza = stanzas.at(name);
    const Str app = reader.app[0] == '\0' ? stanza.appName() : Str(reader.app);
    Settings &expected = model.local(reader.user[0] == '\0' ? "nobody" : reader.user, app);
    for (const char *const key : {"i", "k", "x"}) {
        if (key[0] == 'x' || model.oneIn(2)) {
            stanza.set(key, Str::fromFormat("w%u", round));
            expected[name][key] = stanza.get(key);
        }
    }
    if (model.oneIn(2)) {
        root.shared().pages().invalidateAll();
    }
    root.pages("t", app, reader.user).write(app, name, stanza, false);
}

TEST(PropertyPagesRandom, ViewsAreWhatTheRulesMakeOfTheLayersAndWritesTouchOnlyWhatChanged)
{
    const CapturedLog quiet;
    for (unsigned seed = 1; seed <= 12 && !HasFailure(); ++seed) {
        SCOPED_TRACE(seed);
        Model model(seed);
        const ConfRoot root;
        model.put(root);
        expectViews(root, model);
        unsigned round = 0;
        for (const Reader &reader : {Reader{"", ""}, Reader{"a", ""}, Reader{"a", "u"}, Reader{"", ""}}) {
            changeSomething(root, model, reader, round++);
            expectViews(root, model);
        }
        expectFiles(root, model);
    }
}

} // namespace
} // namespace velmox
