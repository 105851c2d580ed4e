// CJournaledStore: what a store that several processes share is built on.
#pragma once

#include <unordered_map>
#include <vector>

#include "qv/api.h"
#include "qv/config_store.h"

namespace qv {

/// A store in memory that remembers what was changed since it was last brought to its place, so that only that is
/// brought there: what other processes have changed meanwhile stays.
class QV_API CJournaledStore : public CMemStore {
public:
    ~CJournaledStore() override;
    /// Whether there is anything that Flush has not brought to the place yet.
    bool HasChanges() const { return !m_changes.empty(); }

protected:
    /// A value that was set (`parts` 0), or what was removed.
    struct SChange {
        CString path;
        uint32_t parts;
        SValue value;
    };

    CJournaledStore() = default;
    bool write(View path, const SValue& value) override;
    bool remove(View path, uint32_t parts) override;

    const std::vector<SChange>& changes() const { return m_changes; }
    /// Replaces the contents by another store's and forgets the changes, which are in there.
    void settle(const CMemStore& contents);
    /// Makes the changes in another store, which keeps each value as `stored` says. False when it did not take one.
    bool replay(IConfigStore& store, SValue (*stored)(const SValue&)) const;

private:
    CString spelled(int32_t at) const;

    std::vector<SChange> m_changes;
    /// By node: which change set its value. One that is set again before anything is removed takes no further change.
    std::unordered_map<int32_t, size_t> m_setSinceRemoval;
};

}  // namespace qv
