// Settings at their place: a file in one of the forms that keep them, or a key of the user's registry.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "qv/config_store.h"

namespace tool {

/// The forms of settings.
enum class Form { unknown, ini, xml, sqlite, registry };

/// Settings and the place where they are kept. Everything here fails with one sentence.
class Settings {
public:
    virtual ~Settings() = default;
    Settings(const Settings&) = delete;
    Settings& operator=(const Settings&) = delete;

    const std::string& name() const { return m_name; }
    bool exists() const { return m_exists; }
    /// "INI settings"
    std::string title() const;
    /// One word for programs.
    std::string form() const;

    virtual qv::IConfigStore& store() = 0;
    /// Reads what is there.
    virtual void load() = 0;
    /// Brings what was changed since load() to the place, which may be new.
    virtual void flush() = 0;
    /// Puts the contents of the store, which was not loaded, in place of what is there; only with `force` when there is
    /// something.
    virtual void replace(bool force) = 0;
    /// What the form gives back of the store's contents. Forms that keep everything give all.
    virtual void readBack(qv::CMemStore& kept) { (void)kept.CopyFrom(store()); }
    /// How many things stand at the place that are no settings: comments, lines and elements that mean nothing here.
    virtual uint32_t strangers() const { return 0; }
    /// A flush keeps them.
    virtual bool keepsStrangers() const { return false; }

protected:
    Settings(std::string name, Form form, bool exists) : m_name(std::move(name)), m_form(form), m_exists(exists) {}

private:
    std::string m_name;
    Form m_form;
    bool m_exists;
};

/// Settings at a place that may be new: "reg:KEY" for the registry, else a file. Nothing is read yet.
/// @param form      What it is; unknown: what is there tells by its contents, and what is new by its name.
/// @param isTarget  What is there will be replaced: the name tells first.
std::unique_ptr<Settings> openSettings(const std::string& name, Form form, bool isTarget = false);

/// The form of the settings in a file, of which `head` is the beginning; unknown when it has none. Text counts when
/// every line is one of settings.
Form recognisedForm(const std::string& path, std::string_view head);

}  // namespace tool
