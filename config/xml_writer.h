// The XML writer: nodes into the fixed layout, in large writes. It does not recurse.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

#include "qv/xml_file.h"

namespace qv::Private {

class XmlWriter {
public:
    explicit XmlWriter(IFile& file);

    /// A node and everything under it, `depth` tabs deep.
    void writeTree(const CXMLFile::CNode& top, size_t depth);
    /// What is buffered goes to the file. A failed write sets the diagnostic; what comes after it is dropped.
    void flush();

private:
    using CNode = CXMLFile::CNode;

    bool open(const CNode& node, size_t depth);
    void close(const CNode& node, size_t depth);
    void writeAttributes(const CNode& node);

    char* room(size_t size);
    void put(std::string_view text);
    void putTabs(size_t count);
    void putRaw(const CString& text);
    void putEncoded(const CString& text, bool attribute = false);

    IFile& m_file;
    std::unique_ptr<char[]> m_buffer;
    size_t m_used = 0;
    bool m_failed = false;
};

}  // namespace qv::Private
