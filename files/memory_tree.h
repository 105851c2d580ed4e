// The folders and files of a CMemoryFileSystem. Nothing here locks; the tree's lock is for its users to hold.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "files/open_flags.h"
#include "files/sparse_bytes.h"
#include "files/virtual_path.h"
#include "qv/datetime.h"

namespace qv::Private {

/// What one opener does, and lets others do meanwhile.
struct Opening {
    bool read, write;
    Shares shares;
};

/// What all that have one file open do and deny, counted.
class ShareCounts {
public:
    /// Whether one more may open the file beside those that have it open.
    bool allow(const Opening& one) const;
    void add(const Opening& one) { count(one, 1); }
    void remove(const Opening& one) { count(one, -1); }

private:
    void count(const Opening& one, int step);
    int m_reading = 0, m_writing = 0, m_denyingRead = 0, m_denyingWrite = 0;
};

struct NameOrder {
    using is_transparent = void;
    bool exactCase = false;
    bool operator()(std::u16string_view a, std::u16string_view b) const;
};

struct MemoryNode {
    MemoryNode(std::u16string_view nodeName, bool isFolder, NameOrder order);
    ~MemoryNode();

    std::u16string name;
    MemoryNode* parent = nullptr;  // Null for the root and for what has been removed.
    bool folder;
    bool readOnly = false;
    CDateTime modified;
    std::map<std::u16string, std::shared_ptr<MemoryNode>, NameOrder> children;  // Of a folder.
    SparseBytes bytes;                                                          // Of a file.
    ShareCounts openers;

    std::u16string path() const;
    MemoryNode* child(std::u16string_view childName) const;
    /// Null, with nothing changed, when there is no name or the path would have 512 characters or more.
    MemoryNode* add(std::u16string_view childName, bool isFolder);
    /// Takes the node's name away; it lives on for those that have it open.
    void unlink();
};

struct MemoryTree {
    explicit MemoryTree(NameOrder order) : root(std::make_shared<MemoryNode>(u"", true, order)) {}

    /// The node at an absolute path; null when there is none.
    MemoryNode* find(std::u16string_view path) const;
    std::shared_ptr<MemoryNode> share(MemoryNode& node) const;

    std::mutex lock;
    std::shared_ptr<MemoryNode> root;
    IFileSystem* owner = nullptr;  // Null once the file system is gone.
    WorkingDirectory current;      // Has a lock of its own.
};

}  // namespace qv::Private
