#include "qv/locale.h"

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "locale/locale_name.h"
#include "qv/diagnostic.h"
#include "qv/file_system.h"

namespace qv {

template class TSingletonPtr<CLocale, 1, 0>;

CLocale& locale() { return *TSingletonPtr<CLocale, 1, 0>::GetInstance(); }

/// What look-ups see; never changed once it is published.
struct CLocale::State {
    struct Domain {
        std::u16string name;
        std::vector<const ITranslator*> translators;  // In the order in which they are asked.
    };
    std::vector<Domain> domains;
    size_t selected = 0;

    const Domain* domain(const char16_t* name) const {
        if (name == nullptr) return &domains[selected];
        for (const Domain& each : domains) {
            if (each.name == name) return &each;
        }
        return nullptr;
    }
};

/// What changes, under the mutex. States and translators are kept as long as the object lives: a look-up on another
/// thread may still be reading them.
struct CLocale::Store {
    struct Binding {
        std::u16string directory = u"/usr/share/locale";
        std::vector<TSharedPtr<ITranslator>> added;
    };

    mutable std::mutex mutex;
    std::u16string selected;
    std::vector<LocaleName> tried;
    std::u16string domain = u"messages";
    std::map<std::u16string, Binding> domains;
    std::map<std::u16string, std::unique_ptr<CMoTranslator>> catalogues;   // By path; null where there is none.
    std::map<std::vector<std::u16string>, std::unique_ptr<State>> states;  // By all that went into them.

    const ITranslator* catalogue(const std::u16string& path);
    std::vector<std::u16string> key() const;
    std::unique_ptr<State> build();
};

const ITranslator* CLocale::Store::catalogue(const std::u16string& path) {
    auto& slot = catalogues[path];
    if (slot == nullptr && fileSystem().IsFile(path.c_str())) {
        auto loaded = std::make_unique<CMoTranslator>();
        if (loaded->Load(&fileSystem(), path.c_str())) slot = std::move(loaded);
    }
    return slot.get();
}

std::unique_ptr<CLocale::State> CLocale::Store::build() {
    auto state = std::make_unique<State>();
    for (const auto& [name, binding] : domains) {
        if (name == domain) state->selected = state->domains.size();
        State::Domain built{name, {}};
        for (auto added = binding.added.rbegin(); added != binding.added.rend(); ++added) {
            built.translators.push_back(added->get());
        }
        for (const LocaleName& locale : tried) {
            if (locale.isC()) break;  // The program's own texts are wanted before what follows.
            for (const std::u16string& folder : locale.folders()) {
                const std::u16string path = binding.directory + u'/' + folder + u"/LC_MESSAGES/" + name + u".mo";
                if (const ITranslator* found = catalogue(path)) built.translators.push_back(found);
            }
        }
        state->domains.push_back(std::move(built));
    }
    return state;
}

std::vector<std::u16string> CLocale::Store::key() const {
    std::vector<std::u16string> key{domain};
    for (const LocaleName& name : tried) key.push_back(name.text());
    for (const auto& [name, binding] : domains) {
        key.push_back(u'/' + name);
        key.push_back(binding.directory);
        key.push_back(std::u16string(binding.added.size(), u'+'));
    }
    return key;
}

/// Mutex held. A state that was built before serves again.
void CLocale::publish() {
    std::unique_ptr<State>& state = m_store->states[m_store->key()];
    if (state == nullptr) state = m_store->build();
    m_state.store(state.get(), std::memory_order_release);
}

namespace {

bool isDomain(const char16_t* name) {
    if (name != nullptr && *name != 0 && std::u16string_view(name).find_first_of(u"/\\") == std::u16string_view::npos) {
        return true;
    }
    SetDiagnostic(u"", u"the name of a domain of messages", name == nullptr ? u"none" : name);
    return false;
}

}  // namespace

CLocale::CLocale() : m_store(std::make_unique<Store>()) {
    m_store->domains[m_store->domain];
    (void)SetLocale(nullptr);
}
CLocale::~CLocale() = default;

bool CLocale::SetLocale(const char16_t* name) {
    LocaleChoice choice;
    if (name == nullptr || *name == 0) {
        choice = localeOfEnvironment();
    } else {
        const std::optional<LocaleName> parsed = LocaleName::parse(name);
        if (!parsed) {
            SetDiagnostic(u"", u"the name of a locale, such as de_AT.UTF-8", name);
            return false;
        }
        choice = {name, {*parsed}};
    }
    const std::lock_guard lock(m_store->mutex);
    m_store->selected = std::move(choice.selected);
    m_store->tried = std::move(choice.tried);
    publish();
    return true;
}

CString CLocale::GetLocale() const {
    const std::lock_guard lock(m_store->mutex);
    return CString(m_store->selected);
}

CString CLocale::GetLanguage() const {
    const std::optional<LocaleName> name = LocaleName::parse(GetLocale().view());
    return name && !name->isC() ? CString(name->language) : CString(u"");
}

CString CLocale::GetTerritory() const {
    const std::optional<LocaleName> name = LocaleName::parse(GetLocale().view());
    return name ? CString(name->territory) : CString(u"");
}

bool CLocale::BindTextDomain(const char16_t* domain, const char16_t* directory) {
    if (!isDomain(domain) || directory == nullptr) return false;
    const std::lock_guard lock(m_store->mutex);
    m_store->domains[domain].directory = directory;
    publish();
    return true;
}

CString CLocale::GetTextDomainDirectory(const char16_t* domain) const {
    const std::lock_guard lock(m_store->mutex);
    const auto found = m_store->domains.find(domain == nullptr ? m_store->domain : domain);
    return CString(found == m_store->domains.end() ? Store::Binding().directory : found->second.directory);
}

bool CLocale::SetTextDomain(const char16_t* domain) {
    if (!isDomain(domain)) return false;
    const std::lock_guard lock(m_store->mutex);
    m_store->domain = domain;
    m_store->domains[domain];
    publish();
    return true;
}

CString CLocale::GetTextDomain() const {
    const std::lock_guard lock(m_store->mutex);
    return CString(m_store->domain);
}

bool CLocale::AddTranslator(const char16_t* domain, TSharedPtr<ITranslator> translator) {
    if (!isDomain(domain) || !translator) return false;
    const std::lock_guard lock(m_store->mutex);
    m_store->domains[domain].added.push_back(std::move(translator));
    publish();
    return true;
}

const char16_t* CLocale::Translate(const char16_t* domain, const char16_t* context, const char16_t* text) const {
    const State* const state = m_state.load(std::memory_order_acquire);
    if (const State::Domain* found = text == nullptr ? nullptr : state->domain(domain)) {
        for (const ITranslator* translator : found->translators) {
            if (const char16_t* translated = translator->Translate(context, text)) return translated;
        }
    }
    return nullptr;
}

const char16_t* CLocale::TranslatePlural(const char16_t* domain, const char16_t* context, const char16_t* singular,
                                         uint64_t n) const {
    const State* const state = m_state.load(std::memory_order_acquire);
    if (const State::Domain* found = singular == nullptr ? nullptr : state->domain(domain)) {
        for (const ITranslator* translator : found->translators) {
            if (const char16_t* translated = translator->TranslatePlural(context, singular, n)) return translated;
        }
    }
    return nullptr;
}

// The family of gettext ----------------------------------------------------------------------------------------------

const char16_t* dpgettext(const char16_t* domain, const char16_t* context, const char16_t* text) {
    const char16_t* translated = locale().Translate(domain, context, text);
    return translated == nullptr ? text : translated;
}

const char16_t* dnpgettext(const char16_t* domain, const char16_t* context, const char16_t* singular,
                           const char16_t* plural, uint64_t n) {
    const char16_t* translated = locale().TranslatePlural(domain, context, singular, n);
    if (translated != nullptr) return translated;
    return n == 1 ? singular : plural;
}

const char16_t* gettext(const char16_t* text) { return dpgettext(nullptr, nullptr, text); }
const char16_t* dgettext(const char16_t* domain, const char16_t* text) { return dpgettext(domain, nullptr, text); }
const char16_t* pgettext(const char16_t* context, const char16_t* text) { return dpgettext(nullptr, context, text); }
const char16_t* ngettext(const char16_t* singular, const char16_t* plural, uint64_t n) {
    return dnpgettext(nullptr, nullptr, singular, plural, n);
}
const char16_t* dngettext(const char16_t* domain, const char16_t* singular, const char16_t* plural, uint64_t n) {
    return dnpgettext(domain, nullptr, singular, plural, n);
}
const char16_t* npgettext(const char16_t* context, const char16_t* singular, const char16_t* plural, uint64_t n) {
    return dnpgettext(nullptr, context, singular, plural, n);
}

CString textdomain(const char16_t* domain) {
    if (domain != nullptr) (void)locale().SetTextDomain(domain);
    return locale().GetTextDomain();
}

CString bindtextdomain(const char16_t* domain, const char16_t* directory) {
    if (directory != nullptr) (void)locale().BindTextDomain(domain, directory);
    return locale().GetTextDomainDirectory(domain);
}

}  // namespace qv
