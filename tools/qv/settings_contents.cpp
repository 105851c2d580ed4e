#include "settings_contents.h"

#include <CLI/CLI.hpp>
#include <map>

#include "text.h"

namespace tool {

Contents contentsOf(const qv::IConfigStore& store, const qv::CString& section) {
    Contents contents;
    std::vector<qv::CString> pending{section};
    while (!pending.empty()) {
        const qv::CString path = pending.back();
        pending.pop_back();
        qv::IConfigStore::SValue value;
        const bool isTop = path.view() == section.view();
        if (!isTop && store.ReadValue(path, value)) contents.values.push_back({path, value});
        const qv::TArray<qv::IConfigStore::SChild> children = store.GetChildren(path);
        if (!isTop && !children.empty()) ++contents.sections;
        for (uint32_t i = children.size(); i-- > 0;) {
            const qv::CString& name = children.ConstGetItem(i).name;
            pending.push_back(path.IsEmpty() ? name : path + u"/" + name);
        }
    }
    return contents;
}

namespace {

std::string trimmed(const qv::CString& text) { return CLI::detail::trim_copy(narrow(text)); }

/// What became of a value that is not given back, or given back with another text.
Loss::Kind fate(const qv::IConfigStore& wanted, const Setting& setting, const qv::IConfigStore::SValue* found) {
    if (found == nullptr && wanted.HasSection(setting.path)) return Loss::Kind::valueOfSection;
    if (setting.value.text.IsEmpty()) return Loss::Kind::emptyValue;
    const std::string text = trimmed(setting.value.text);
    return text == (found == nullptr ? "" : trimmed(found->text)) ? Loss::Kind::space : Loss::Kind::value;
}

}  // namespace

std::vector<Loss> lossesOf(const qv::IConfigStore& wanted, const qv::IConfigStore& kept) {
    std::map<std::u16string, qv::IConfigStore::SValue> left;
    for (const Setting& setting : contentsOf(kept).values) left[std::u16string(setting.path.view())] = setting.value;
    std::vector<Loss> losses;
    for (const Setting& setting : contentsOf(wanted).values) {
        const auto found = left.find(std::u16string(setting.path.view()));
        const qv::IConfigStore::SValue* value = found == left.end() ? nullptr : &found->second;
        if (value == nullptr || value->text.view() != setting.value.text.view()) {
            losses.push_back({fate(wanted, setting, value), setting});
        } else if (value->type != setting.value.type) {
            losses.push_back({Loss::Kind::type, setting});
        }
        if (value != nullptr) left.erase(found);
    }
    for (const auto& [path, value] : left) losses.push_back({Loss::Kind::added, {qv::CString(path), value}});
    return losses;
}

std::string sentenceOf(const Loss& loss) {
    const std::string path = narrow(loss.setting.path);
    switch (loss.kind) {
        case Loss::Kind::type:
            return "does not keep the type " + narrow(qv::CVariant::TypeToString(loss.setting.value.type)) + " of " +
                   path;
        case Loss::Kind::emptyValue: return "does not keep the empty value of " + path;
        case Loss::Kind::space: return "does not keep the white space around the value of " + path;
        case Loss::Kind::valueOfSection: return "does not keep the value of " + path + ", which has settings below it";
        case Loss::Kind::added: return "gives back a value of " + path + ", which is another path";
        default: return "does not keep the value of " + path;
    }
}

std::string wordOf(Loss::Kind kind) {
    constexpr const char* words[] = {"type", "emptyValue", "space", "valueOfSection", "value", "added"};
    return words[static_cast<size_t>(kind)];
}

}  // namespace tool
