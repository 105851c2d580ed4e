#include "settings.h"

#include <algorithm>
#include <filesystem>
#include <map>

#include "command.h"
#include "container.h"
#include "places.h"
#include "qv/diagnostic.h"
#include "qv/file_system.h"
#include "qv/ini_store.h"
#include "qv/reg_store.h"
#include "qv/sqlite_store.h"
#include "qv/xml_store.h"
#include "source.h"
#include "target.h"
#include "text.h"

namespace tool {

namespace {
namespace fs = std::filesystem;
using namespace std::string_view_literals;

constexpr char registryPrefix[] = "reg:";

qv::TSharedPtr<qv::IFile> memoryFile(std::string_view bytes) {
    qv::TSharedPtr<qv::CMemFile> file = qv::CMemFile::Create();
    file->WriteBytes(bytes.data(), static_cast<uint32_t>(bytes.size()));
    file->SeekToBegin();
    return file;
}

// What a file begins with --------------------------------------------------------------------------------------------

bool isDatabase(std::string_view head) { return head.starts_with("SQLite format 3\0"sv); }
/// Databases of settings carry their application id there.
bool isOwnDatabase(std::string_view head) {
    return isDatabase(head) && head.size() > 72 && head.substr(68).starts_with("qvst");
}

std::string_view withoutSpace(std::string_view head) {
    if (head.starts_with("\xEF\xBB\xBF")) head.remove_prefix(3);
    return head.substr(std::min(head.find_first_not_of(" \t\r\n"), head.size()));
}

bool isMarkup(std::string_view head) { return withoutSpace(head).starts_with('<'); }

/// The first element of a document is "store", in any case.
bool isStoreDocument(std::string_view head) {
    for (head = withoutSpace(head); head.starts_with("<?") || head.starts_with("<!"); head = withoutSpace(head)) {
        const std::string_view end = head.starts_with("<?") ? "?>"sv : head.starts_with("<!--") ? "-->"sv : ">"sv;
        head = head.substr(std::min(head.find(end), head.size() - end.size()) + end.size());
    }
    return head.size() > 6 && CLI::detail::to_lower(std::string(head.substr(0, 6))) == "<store" &&
           " \t\r\n/>"sv.find(head[6]) != std::string_view::npos;
}

bool isSettingsText(const qv::CINIStore& text) {
    const qv::CINIStore::SLineCounts lines = text.CountLines();
    return lines.unknown == 0 && lines.section + lines.value != 0;
}

/// The whole file is read only when its head is nothing but lines of settings.
bool isSettingsFile(const std::string& path, std::string_view head) {
    qv::CINIStore text;
    const size_t feed = head.rfind('\n');
    const std::string_view whole = head.size() < headBytes ? head : head.substr(0, feed == head.npos ? 0 : feed + 1);
    if (!text.Load(memoryFile(whole)) || text.CountLines().unknown != 0) return false;
    return text.Load(&files(), wide(path).c_str()) && isSettingsText(text);
}

std::string extensionOf(const std::string& path) { return CLI::detail::to_lower(fs::path(path).extension().string()); }

Form formOfName(const std::string& path) {
    static const std::map<std::string, Form> forms = {
        {".ini", Form::ini}, {".xml", Form::xml}, {".db", Form::sqlite}, {".sqlite", Form::sqlite}};
    const auto found = forms.find(extensionOf(path));
    return found == forms.end() ? Form::unknown : found->second;
}

Form formOfHead(std::string_view head) {
    if (head.empty()) return Form::unknown;
    if (isDatabase(head)) return Form::sqlite;
    return isMarkup(head) ? Form::xml : Form::ini;
}

// The forms ----------------------------------------------------------------------------------------------------------

/// An entry of a container that is there, where settings may stand as a text.
bool isEntry(const std::string& path) {
    const std::optional<Inside> inside = insideOf(path);
    return inside && openContainer(inside->container, true) != nullptr;
}

/// A form that is a text, written as a whole.
template <class Store, Form kind>
class TextSettings : public Settings {
public:
    TextSettings(const std::string& path, bool exists) : Settings(path, kind, exists) {}
    qv::IConfigStore& store() override { return m_store; }
    void replace(bool force) override {
        if (isEntry(name()) && exists() && force) return writeEntry();
        Target target(name(), force);
        qv::ClearDiagnostic();
        if (!m_store.Save(target.open())) throw diagnosed(Exit::io, name(), "cannot be written");
        target.commit();
    }
    void readBack(qv::CMemStore& kept) override {
        const qv::TSharedPtr<qv::IFile> file = memoryFile("");
        Store again;
        qv::ClearDiagnostic();
        if (!m_store.Save(file)) throw diagnosed(Exit::io, name(), "cannot be written");
        file->SeekToBegin();
        if (!again.Load(file)) throw diagnosed(Exit::usage, name(), "cannot hold these settings");
        (void)kept.CopyFrom(again);
    }

protected:
    void writeEntry() {
        qv::ClearDiagnostic();
        if (!m_store.Save(&files(), wide(name()).c_str())) throw diagnosed(Exit::io, name(), "cannot be written");
    }

    Store m_store;
};

class IniSettings : public TextSettings<qv::CINIStore, Form::ini> {
public:
    /// `sure`: also a text with unknown lines is meant.
    IniSettings(const std::string& path, bool exists, bool sure) : TextSettings(path, exists), m_sure(sure) {}
    void load() override {
        qv::ClearDiagnostic();
        const qv::CString path = wide(name());
        const bool loaded = isEntry(name()) ? m_store.Load(&files(), path.c_str()) : m_store.Load(path.c_str());
        if (!loaded) throw diagnosed(Exit::wrongKind, name(), "holds no settings");
        const uint32_t unknown = m_sure ? 0 : m_store.CountLines().unknown;
        if (unknown == 0) return;
        throw Failure(Exit::wrongKind, name() + ": expected settings, found " + std::to_string(unknown) +
                                           " lines that are none (--store-type ini takes it all the same)");
    }
    void flush() override {
        if (isEntry(name())) return writeEntry();
        qv::ClearDiagnostic();
        if (!m_store.Save(wide(name()).c_str())) throw diagnosed(Exit::io, name(), "cannot be written");
    }
    uint32_t strangers() const override {
        const qv::CINIStore::SLineCounts lines = m_store.CountLines();
        return lines.comment + lines.unknown;
    }
    bool keepsStrangers() const override { return true; }

private:
    bool m_sure;
};

using Node = qv::CXMLFile::CNode;

bool isElement(const Node& node, const char16_t* word) {
    return node.type == qv::CXMLFile::NODETYPE_ELEMENT && node.name.CompareNoCase(word) == 0;
}

/// The node behind this one and, where `below`, all that is below it, in the order of the document.
const Node* following(const Node* node, bool below) {
    if (below && node->Child() != nullptr) return node->Child();
    while (node != nullptr && node->Next() == nullptr) node = node->Parent();
    return node == nullptr ? nullptr : node->Next();
}

class XmlSettings : public TextSettings<qv::CXMLStore, Form::xml> {
public:
    using TextSettings::TextSettings;
    void load() override {
        const qv::CString path = wide(name());
        if (m_store.Load(&files(), path.c_str())) return;
        const bool markup = isMarkup(headOf(name()));
        qv::CXMLFile document;
        qv::ClearDiagnostic();
        const bool isXml = document.Load(&files(), path.c_str());
        if (!isXml) throw diagnosed(markup ? Exit::damaged : Exit::wrongKind, name(), "is no XML");
        (void)m_store.Load(&files(), path.c_str());
        throw diagnosed(Exit::wrongKind, name(), "holds no settings");
    }
    void flush() override { replace(exists()); }
    uint32_t strangers() const override {
        qv::CXMLFile document;
        if (!exists() || !document.Load(&files(), wide(name()).c_str())) return 0;
        uint32_t count = 0;
        bool inStore = false, found = false;
        for (const Node* node = document.GetRoot(); node != nullptr;) {
            const bool top = node->Parent() == nullptr;
            const bool isStore = top && !found && isElement(*node, u"store");
            if (top) inStore = isStore;
            found = found || isStore;
            const bool isEntry = !top && inStore && isElement(*node, u"entry");
            const bool isProlog = node->type == qv::CXMLFile::NODETYPE_PI && node->name.CompareNoCase(u"xml") == 0;
            if (!isStore && !isEntry && !isProlog) ++count;
            if (isStore) count += node->attributes.size() + (node->value.IsEmpty() ? 0 : 1);
            if (isEntry) count += node->attributes.size() - (node->attributes.Exists(u"name") ? 1 : 0);
            node = following(node, isStore || isEntry);
        }
        return count;
    }
};

class SqliteSettings : public Settings {
public:
    SqliteSettings(const std::string& path, bool exists) : Settings(path, Form::sqlite, exists) {
        if (!exists) (void)m_store.Load(wide(path).c_str());  // It takes the name for its first flush.
    }
    qv::IConfigStore& store() override { return m_store; }
    void load() override {
        const bool own = isOwnDatabase(headOf(name()));
        qv::ClearDiagnostic();
        if (m_store.Load(wide(name()).c_str())) return;
        // A database that another process kept for itself all the time is not damaged.
        const bool busy = qv::LastDiagnostic().found == u"database is locked";
        const Exit refused = own ? Exit::damaged : Exit::wrongKind;
        throw diagnosed(busy ? Exit::io : refused, name(), "cannot be read");
    }
    void flush() override {
        qv::ClearDiagnostic();
        if (!m_store.Flush()) throw diagnosed(Exit::io, name(), "cannot be written");
    }
    /// A database that is there is changed in one transaction, since others may have it open.
    void replace(bool force) override {
        const std::string head = exists() ? headOf(name()) : std::string();
        qv::ClearDiagnostic();
        if (exists() && force) {
            if (m_store.Save(wide(name()).c_str())) return;
            throw diagnosed(head.empty() || isOwnDatabase(head) ? Exit::io : Exit::wrongKind, name(),
                            "cannot be written");
        }
        Target target(name(), false);
        {
            qv::CsqliteStore made;
            (void)made.CopyFrom(m_store);
            if (!made.Save(wide(target.temporary()).c_str())) throw diagnosed(Exit::io, name(), "cannot be written");
        }
        target.commit();
    }

private:
    qv::CsqliteStore m_store;
};

class RegistrySettings : public Settings {
public:
    RegistrySettings(const std::string& name, const std::string& key)
        : RegistrySettings(name, std::make_unique<qv::CRegStore>(wide(key))) {}
    qv::IConfigStore& store() override { return *m_store; }
    void load() override {
        requireFile(narrow(m_store->GetFile()));
        qv::ClearDiagnostic();
        if (!m_store->Load()) throw diagnosed(Exit::damaged, name(), "cannot be read");
    }
    void flush() override {
        qv::ClearDiagnostic();
        if (!m_store->Flush()) throw diagnosed(Exit::io, name(), "cannot be written");
    }
    void replace(bool force) override {
        if (exists() && !force) throw Failure(Exit::negative, name() + ": exists already (--force replaces it)");
        flush();
    }

private:
    RegistrySettings(const std::string& name, std::unique_ptr<qv::CRegStore> store)
        : Settings(name, Form::registry, qv::fileSystem().FileExists(store->GetFile().c_str())),
          m_store(std::move(store)) {
        if (m_store->GetFile().IsEmpty())
            throw Failure(Exit::usage, name + ": is no key of the registry, or there is no folder for settings");
    }

    std::unique_ptr<qv::CRegStore> m_store;
};

}  // namespace

// Places -------------------------------------------------------------------------------------------------------------

std::string Settings::form() const {
    constexpr const char* words[] = {"unknown", "ini", "xml", "sqlite", "registry"};
    return words[static_cast<size_t>(m_form)];
}

std::string Settings::title() const {
    constexpr const char* titles[] = {"unknown settings", "INI settings", "XML settings", "SQLite settings",
                                      "settings in the registry"};
    return titles[static_cast<size_t>(m_form)];
}

std::unique_ptr<Settings> openSettings(const std::string& name, Form form, bool isTarget) {
    if (name.empty()) throw Failure(Exit::usage, "the store needs a name");
    const bool hasPrefix = name.starts_with(registryPrefix);
    if (form == Form::registry || (form == Form::unknown && hasPrefix)) {
        return std::make_unique<RegistrySettings>(name, hasPrefix ? name.substr(4) : name);
    }
    std::error_code error;
    const fs::file_status status = fs::symlink_status(name, error);
    const bool entry = isEntry(name);
    const bool exists = entry || status.type() != fs::file_type::not_found;
    if (exists || !isNameable(name)) requireFile(name);
    const bool sure = form == Form::ini || extensionOf(name) == ".ini";
    const Form named = formOfName(name);
    if (form == Form::unknown && (isTarget || !exists)) form = named;
    if (form == Form::unknown && exists)
        form = isTarget ? recognisedForm(name, headOf(name)) : formOfHead(headOf(name));
    if (form == Form::unknown && exists && !isTarget)
        form = named == Form::unknown ? Form::ini : named;  // It is empty.
    switch (form) {
        case Form::ini: return std::make_unique<IniSettings>(name, exists, sure);
        case Form::xml: return std::make_unique<XmlSettings>(name, exists);
        case Form::sqlite:
            if (!entry) return std::make_unique<SqliteSettings>(name, exists);
            throw Failure(Exit::usage, name + ": a database is used where it lies on disk (qv pack get takes it out)");
        default:
            throw Failure(Exit::usage,
                          name + ": a new store needs a name in .ini, .xml, .db or .sqlite, or its type as an option");
    }
}

Form recognisedForm(const std::string& path, std::string_view head) {
    if (isOwnDatabase(head)) return Form::sqlite;
    if (isDatabase(head)) return Form::unknown;
    if (isMarkup(head)) return isStoreDocument(head) ? Form::xml : Form::unknown;
    return isSettingsFile(path, head) ? Form::ini : Form::unknown;
}

}  // namespace tool
