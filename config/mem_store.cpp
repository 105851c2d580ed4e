#include <vector>

#include "config/path.h"
#include "core/text.h"
#include "qv/config_store.h"

namespace qv {

namespace {

/// FNV-1a over the lower-case units.
uint32_t hashOf(std::u16string_view name) {
    uint32_t hash = 2166136261u;
    for (const char16_t ch : name) hash = (hash ^ text::toLower(ch)) * 16777619u;
    return hash;
}

size_t bucketIndex(int32_t parent, uint32_t hash, size_t buckets) {
    const uint64_t mixed = (uint64_t{static_cast<uint32_t>(parent)} << 32 | hash) * 0x9E3779B97F4A7C15u;
    return static_cast<size_t>(mixed >> 32) & (buckets - 1);
}

}  // namespace

CMemStore::CMemStore() { Clear(); }
CMemStore::~CMemStore() = default;

CMemStore& CMemStore::operator=(const CMemStore& other) {
    if (this == &other) return *this;
    m_nodes = other.m_nodes;
    m_firstFree = other.m_firstFree;
    m_buckets = other.m_buckets;
    return *this;
}

void CMemStore::Clear() {
    m_nodes.Empty();
    m_nodes.SetGrowthRate(Private::doublingRate);
    m_nodes.Add(SNode());
    m_firstFree = -1;
    m_buckets.assign(16, -1);
}

// Nodes ---------------------------------------------------------------------------------------------------------------

int32_t CMemStore::findChild(int32_t parent, View name, uint32_t hash) const {
    int32_t i = m_buckets[bucketIndex(parent, hash, m_buckets.size())];
    for (; i != -1; i = node(i).nextInBucket) {
        const SNode& at = node(i);
        if (at.nameHash == hash && at.parent == parent && text::compareNoCase(at.name.view(), name) == 0) break;
    }
    return i;
}

int32_t& CMemStore::bucketOf(int32_t parent, uint32_t hash) {
    return m_buckets[bucketIndex(parent, hash, m_buckets.size())];
}

void CMemStore::growBuckets() {
    m_buckets.assign(m_buckets.size() * 2, -1);
    for (uint32_t i = 1; i < m_nodes.size(); ++i) {
        SNode& moved = m_nodes.data()[i];
        if (moved.parent == -1) continue;  // Waits for use.
        int32_t& bucket = bucketOf(moved.parent, moved.nameHash);
        moved.nextInBucket = bucket;
        bucket = static_cast<int32_t>(i);
    }
}

int32_t CMemStore::find(View path, int32_t from) const {
    while (from != -1 && !path.empty()) {
        const View name = Private::takeName(path);
        from = findChild(from, name, hashOf(name));
    }
    return from;
}

int32_t CMemStore::make(View path, int32_t from) {
    while (from != -1 && !path.empty()) {
        const View name = Private::takeName(path);
        const uint32_t hash = hashOf(name);
        const int32_t child = findChild(from, name, hash);
        from = child != -1 ? child : addNode(from, name, hash);
    }
    return from;
}

int32_t CMemStore::addNode(int32_t parent, View name, uint32_t hash) {
    SNode added;
    added.name = CString(name);
    added.nameHash = hash;
    added.parent = parent;
    added.prevSibling = node(parent).lastChild;
    int32_t index = m_firstFree;
    if (index != -1) {
        m_firstFree = node(index).nextSibling;
        node(index) = added;
    } else {
        index = static_cast<int32_t>(m_nodes.size());
        if (m_nodes.size() >= 0x7FFFFFFF || !m_nodes.Add(added)) return -1;
    }
    (added.prevSibling == -1 ? node(parent).firstChild : node(added.prevSibling).nextSibling) = index;
    node(parent).lastChild = index;
    int32_t& bucket = bucketOf(parent, hash);
    node(index).nextInBucket = bucket;
    bucket = index;
    if (m_nodes.size() > m_buckets.size()) growBuckets();
    return index;
}

/// Takes a node out of its parent's list.
void CMemStore::unlink(int32_t index) {
    const SNode& gone = node(index);
    SNode& parent = node(gone.parent);
    (gone.prevSibling == -1 ? parent.firstChild : node(gone.prevSibling).nextSibling) = gone.nextSibling;
    (gone.nextSibling == -1 ? parent.lastChild : node(gone.nextSibling).prevSibling) = gone.prevSibling;
}

/// Gives a node that is in no list any more, and everything below it, back for use.
void CMemStore::releaseTree(int32_t index) {
    std::vector<int32_t> pending{index};
    while (!pending.empty()) {
        const int32_t at = pending.back();
        pending.pop_back();
        for (int32_t i = node(at).firstChild; i != -1; i = node(i).nextSibling) pending.push_back(i);
        int32_t* link = &bucketOf(node(at).parent, node(at).nameHash);
        while (*link != at) link = &node(*link).nextInBucket;
        *link = node(at).nextInBucket;
        node(at) = SNode();
        node(at).nextSibling = m_firstFree;
        m_firstFree = at;
    }
}

// The primitives ------------------------------------------------------------------------------------------------------

bool CMemStore::read(View path, SValue& value) const {
    const int32_t at = find(path);
    if (at == -1 || !node(at).hasValue()) return false;
    value = node(at).value;
    return true;
}

bool CMemStore::write(View path, const SValue& value) {
    const int32_t at = make(path);
    if (at == -1) return false;
    node(at).value = value;
    return true;
}

bool CMemStore::remove(View path, uint32_t parts) {
    int32_t at = find(path);
    if (at == -1) return true;
    if ((parts & partValue) != 0) node(at).value = SNode().value;
    while ((parts & partChildren) != 0 && node(at).firstChild != -1) {
        const int32_t child = node(at).firstChild;
        unlink(child);
        releaseTree(child);
    }
    while (at != 0 && node(at).firstChild == -1 && !node(at).hasValue()) {
        const int32_t parent = node(at).parent;
        unlink(at);
        releaseTree(at);
        at = parent;
    }
    return true;
}

void CMemStore::list(View path, TArray<SChild>& children) const {
    const int32_t at = find(path);
    if (at == -1) return;
    for (int32_t i = node(at).firstChild; i != -1; i = node(i).nextSibling) {
        children.Add({node(i).name, node(i).hasValue(), node(i).firstChild != -1});
    }
}

bool CMemStore::hasChildren(View path) const {
    const int32_t at = find(path);
    return at != -1 && node(at).firstChild != -1;
}

}  // namespace qv
