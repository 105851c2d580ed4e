// Translated texts: which locale is selected, and the catalogues behind gettext and its companions.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>

#include "qv/api.h"
#include "qv/shared_ptr.h"
#include "qv/singleton.h"
#include "qv/string.h"

namespace qv {
class IFile;
class IFileSystem;
}  // namespace qv

/// A source of translations. Asked from many threads at once; what it returns stays valid as long as it lives.
class QV_API ITranslator {
public:
    virtual ~ITranslator();
    /// @param context  Tells equal texts with different meanings apart; null for none.
    /// @return  Null when the text is unknown.
    virtual const char16_t* Translate(const char16_t* context, const char16_t* text) const = 0;
    /// The form for a count of `n`, looked up by the singular; null when it is unknown.
    virtual const char16_t* TranslatePlural(const char16_t* context, const char16_t* singular, uint64_t n) const = 0;
};

/// A message catalogue in the GNU MO format: both byte orders, contexts, plural forms by the catalogue's own
/// expression, any charset that the C library knows (UTF-8 when the catalogue names none). Loaded before it is shared;
/// look-ups take no lock.
class QV_API CMoTranslator : public ITranslator {
public:
    CMoTranslator();
    ~CMoTranslator() override;
    CMoTranslator(const CMoTranslator&) = delete;
    CMoTranslator& operator=(const CMoTranslator&) = delete;

    /// Replaces what was loaded. The file is read from its present position to its end.
    /// @return  False, with a diagnostic and nothing loaded, when it is no catalogue or a damaged one: tables or texts
    ///          that reach beyond the file, overlap, or whose charset is unknown. A plural expression that cannot be
    ///          read counts as "n != 1".
    bool Load(qv::IFile* file);
    bool Load(qv::IFileSystem* fileSystem, const char16_t* path);

    const char16_t* Translate(const char16_t* context, const char16_t* text) const override;
    const char16_t* TranslatePlural(const char16_t* context, const char16_t* singular, uint64_t n) const override;

    /// Messages without the header.
    uint32_t GetMessageCount() const;
    /// The header: lines "Name: value".
    qv::CString GetHeader() const;

    struct Catalogue;

private:
    std::unique_ptr<Catalogue> m_catalogue;
};

namespace qv {

/// The selected locale and its catalogues, one for the process: locale().
///
/// Names have the form language[_TERRITORY][.codeset][@modifier], such as "de_AT.UTF-8"; "C" and "POSIX" stand for the
/// texts of the program itself. Catalogues are looked for in <directory>/<name>/LC_MESSAGES/<domain>.mo, from the most
/// specific form of the name to the language alone; a text that one does not have is looked up in the next.
/// A catalogue is looked for once, when its locale is first selected for its domain.
/// Threads: everything may be called from any thread. Look-ups take no lock: what is selected is published as a whole,
/// and catalogues, once loaded, stay until the process ends, so the texts that look-ups return stay valid.
class QV_API CLocale {
public:
    /// Selects the locale of the environment; the default domain is "messages", found in /usr/share/locale.
    CLocale();
    ~CLocale();
    CLocale(const CLocale&) = delete;
    CLocale& operator=(const CLocale&) = delete;

    /// Selects a locale by name. Null or empty: by the environment, LC_ALL before LC_MESSAGES before LANG; where that
    /// gives a language at all, LANGUAGE ("de:fr") lists the languages to try in its place.
    /// @return  False, with a diagnostic and nothing changed, for text that is no name of a locale. It is no failure
    ///          that there are no catalogues.
    bool SetLocale(const char16_t* name);
    CString GetLocale() const;
    /// Parts of the name; empty where it has none.
    CString GetLanguage() const;
    CString GetTerritory() const;

    /// Says in which directory the catalogues of a domain are. False for a domain that is empty or holds a separator.
    bool BindTextDomain(const char16_t* domain, const char16_t* directory);
    CString GetTextDomainDirectory(const char16_t* domain) const;
    /// Selects the domain of look-ups that name none.
    bool SetTextDomain(const char16_t* domain);
    CString GetTextDomain() const;
    /// Adds a translator that is asked before a domain's catalogues; the newest first. Kept until the process ends.
    bool AddTranslator(const char16_t* domain, TSharedPtr<ITranslator> translator);

    /// The translation, or null. A null domain is the selected one, a null context none.
    const char16_t* Translate(const char16_t* domain, const char16_t* context, const char16_t* text) const;
    const char16_t* TranslatePlural(const char16_t* domain, const char16_t* context, const char16_t* singular,
                                    uint64_t n) const;

    /// The exit pass leaves the instance usable.
    void retire() {}

private:
    struct State;
    struct Store;
    void publish();

    std::unique_ptr<Store> m_store;
    std::atomic<const State*> m_state{nullptr};
};

extern template class QV_API TSingletonPtr<CLocale, 1, 0>;
/// The instance, made on first use.
QV_API CLocale& locale();

/// The translation of a text in the selected locale; the text itself where there is none. With d: of a domain. With p:
/// in a context. With n: for a count, by the rules of the language; without a translation the singular for 1, otherwise
/// the plural. A null text gives null.
QV_API const char16_t* gettext(const char16_t* text);
QV_API const char16_t* dgettext(const char16_t* domain, const char16_t* text);
QV_API const char16_t* pgettext(const char16_t* context, const char16_t* text);
QV_API const char16_t* dpgettext(const char16_t* domain, const char16_t* context, const char16_t* text);
QV_API const char16_t* ngettext(const char16_t* singular, const char16_t* plural, uint64_t n);
QV_API const char16_t* dngettext(const char16_t* domain, const char16_t* singular, const char16_t* plural, uint64_t n);
QV_API const char16_t* npgettext(const char16_t* context, const char16_t* singular, const char16_t* plural, uint64_t n);
QV_API const char16_t* dnpgettext(const char16_t* domain, const char16_t* context, const char16_t* singular,
                                  const char16_t* plural, uint64_t n);

/// Selects the domain, and says where a domain's catalogues are; null only asks. What they return is in force then.
QV_API CString textdomain(const char16_t* domain);
QV_API CString bindtextdomain(const char16_t* domain, const char16_t* directory);

}  // namespace qv
