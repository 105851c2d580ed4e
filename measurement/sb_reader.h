// The reader of structured binary files: the whole file into memory, checked, then into elements. It does not recurse.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "qv/sb_file.h"

namespace qv::Private {

class SbReader {
public:
    explicit SbReader(IFile& file);

    /// Reads a file from where the IFile stands. False sets the diagnostic.
    bool read();

    /// What was read.
    const char* identifier() const { return m_identifier; }
    CSBFile::CElement* release() { return m_root.release(); }

private:
    using CElement = CSBFile::CElement;
    /// What a list of siblings still waits for while the children of one of them are read.
    struct LOAD_HELPER {
        CElement* parent = nullptr;
        uint32_t depth = 0;  ///< Of the siblings.
    };

    /// An attribute as it stands in the content.
    struct Stored {
        uint32_t name = 0;
        CSBFile::TYPE type = CSBFile::TYPE_BOOL;
        uint32_t size = 0;
        const uint8_t* payload = nullptr;
    };

    bool readHeader();
    bool readContent(uint64_t length, uint32_t sum);
    bool readNames();
    bool readTree();
    CElement* readElement(CElement* parent, uint32_t& flags);
    bool readAttributes(CSBFile::CAttribArray& attributes, uint32_t count);
    bool readAttribute(Stored& stored);
    bool readVarint(uint32_t& value);
    bool readName(CString& name);
    bool checkName(uint32_t index, const uint8_t* at);

    size_t left() const { return static_cast<size_t>(m_end - m_at); }
    bool refuse(const char16_t* expected, const CString& found, int64_t byte);
    bool refuseAt(const char16_t* expected, const CString& found, const uint8_t* at);

    IFile& m_file;
    const int64_t m_start;
    std::unique_ptr<uint8_t[]> m_content;
    const uint8_t* m_at = nullptr;
    const uint8_t* m_end = nullptr;
    TArray<CString> m_names;
    std::unique_ptr<CElement> m_root;
    char m_identifier[5] = {};
};

}  // namespace qv::Private
