#include "qv/journaled_store.h"

namespace qv {

CJournaledStore::~CJournaledStore() = default;

bool CJournaledStore::write(View path, const SValue& value) {
    if (!CMemStore::write(path, value)) return false;
    const int32_t at = find(path);
    const auto [entry, isNew] = m_setSinceRemoval.try_emplace(at, m_changes.size());
    if (isNew)
        m_changes.push_back({spelled(at), 0, value});
    else
        m_changes[entry->second].value = value;
    return true;
}

/// The path of a node as its names were first spelled.
CString CJournaledStore::spelled(int32_t at) const {
    CString path;
    for (; at > 0; at = node(at).parent) path = path.IsEmpty() ? node(at).name : node(at).name + u"/" + path;
    return path;
}

bool CJournaledStore::remove(View path, uint32_t parts) {
    if (!CMemStore::remove(path, parts)) return false;
    m_changes.push_back({CString(path), parts, SValue()});
    m_setSinceRemoval.clear();
    return true;
}

void CJournaledStore::settle(const CMemStore& contents) {
    CMemStore::operator=(contents);
    m_changes.clear();
    m_setSinceRemoval.clear();
}

bool CJournaledStore::replay(IConfigStore& store, SValue (*stored)(const SValue&)) const {
    for (const SChange& change : m_changes) {
        bool taken = true;
        switch (change.parts) {
            case 0: taken = store.SetValue(change.path, stored(change.value)); break;
            case partValue: taken = store.RemoveValue(change.path); break;
            case partChildren: taken = store.RemoveSection(change.path); break;
            default: taken = store.Remove(change.path); break;
        }
        if (!taken) return false;
    }
    return true;
}

}  // namespace qv
