#include "files/memory_tree.h"

#include <algorithm>

#include "core/text.h"

namespace qv::Private {

bool ShareCounts::allow(const Opening& one) const {
    const bool denied = (one.read && m_denyingRead != 0) || (one.write && m_denyingWrite != 0);
    const bool denies = (!one.shares.read && m_reading != 0) || (!one.shares.write && m_writing != 0);
    return !denied && !denies;
}

void ShareCounts::count(const Opening& one, int step) {
    if (one.read) m_reading += step;
    if (one.write) m_writing += step;
    if (!one.shares.read) m_denyingRead += step;
    if (!one.shares.write) m_denyingWrite += step;
}

bool NameOrder::operator()(std::u16string_view a, std::u16string_view b) const {
    return exactCase ? a < b : text::compareNoCase(a, b) < 0;
}

MemoryNode::MemoryNode(std::u16string_view nodeName, bool isFolder, NameOrder order)
    : name(nodeName), folder(isFolder), modified(CDateTime::UtcNow()), children(order) {}

MemoryNode::~MemoryNode() {
    for (const auto& [childName, node] : children) node->parent = nullptr;
}

std::u16string MemoryNode::path() const {
    if (parent == nullptr) return u"/" + name;
    return joinedPath(parent->path(), name);
}

MemoryNode* MemoryNode::child(std::u16string_view childName) const {
    const auto found = children.find(childName);
    return found == children.end() ? nullptr : found->second.get();
}

MemoryNode* MemoryNode::add(std::u16string_view childName, bool isFolder) {
    const size_t length = joinedPath(path(), childName).size();
    if (childName.empty() || length >= static_cast<size_t>(IFileSystem::pathChars)) return nullptr;
    const auto node = std::make_shared<MemoryNode>(childName, isFolder, children.key_comp());
    children.emplace(node->name, node);
    node->parent = this;
    modified = node->modified;
    return node.get();
}

void MemoryNode::unlink() {
    if (parent == nullptr) return;
    MemoryNode* const from = parent;
    parent = nullptr;
    from->modified = CDateTime::UtcNow();
    from->children.erase(from->children.find(name));  // May end this node.
}

MemoryNode* MemoryTree::find(std::u16string_view path) const {
    MemoryNode* node = path.empty() ? nullptr : root.get();
    for (size_t at = 1; node != nullptr && at < path.size();) {
        const size_t end = std::min(path.find(u'/', at), path.size());
        node = node->child(path.substr(at, end - at));
        at = end + 1;
    }
    return node;
}

std::shared_ptr<MemoryNode> MemoryTree::share(MemoryNode& node) const {
    if (node.parent == nullptr) return root;
    return node.parent->children.find(node.name)->second;
}

}  // namespace qv::Private
