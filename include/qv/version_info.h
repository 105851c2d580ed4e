// CVersionInfo: the version record of a Windows program or library file, and this library's own version.
#pragma once

#include <cstdint>

#include "qv/api.h"
#include "qv/array.h"
#include "qv/string.h"

namespace qv {

class IFile;
class IFileSystem;

/// The version record of a Windows executable (PE32 or PE32+: .exe, .dll, .sys …): fixed numbers, and tables of texts
/// for languages.
///
/// Of several records the one with the number 1 counts, else the first, in the language that comes first.
/// Threads:  read by many at once, loaded by one.
class QV_API CVersionInfo {
public:
    /// A version in four parts of 16 bits, highest first, as one number: versions compare as their numbers do.
    struct QV_API Number {
        uint64_t value = 0;

        uint16_t Part(int index) const { return static_cast<uint16_t>(value >> (48 - 16 * index)); }
        /// "1.2.3.4".
        CString ToString() const;
        friend bool operator==(const Number&, const Number&) = default;
        friend auto operator<=>(const Number&, const Number&) = default;
    };

    /// The fixed part, as the record has it.
    struct FixedInfo {
        Number fileVersion, productVersion;
        uint32_t flagsMask = 0;  ///< Which bits of `flags` count.
        uint32_t flags = 0;      ///< 1 debug, 2 pre-release, 4 patched, 8 private build, 0x10 inferred, 0x20 special.
        uint32_t os = 0;         ///< 0x40004 for Windows.
        uint32_t type = 0;       ///< 1 program, 2 library, 3 driver, 4 font, 5 virtual device, 7 static library.
        uint32_t subtype = 0;    ///< Of drivers and fonts.
        uint64_t date = 0;       ///< FILETIME; 0 in most files.
    };

    /// One language of the record.
    struct Translation {
        uint16_t language = 0;  ///< Windows language identifier, 0x0409 for English (United States).
        uint16_t codePage = 0;  ///< 1200 for UTF-16, which the texts have whatever this says.

        friend bool operator==(const Translation&, const Translation&) = default;
    };
    struct StringEntry {
        CString name, value;
    };
    struct StringTable {
        Translation translation;
        TArray<StringEntry> strings;
    };

    /// Reads the record, replacing what was loaded. Only the headers and the record itself are read; a hostile file
    /// costs a few MiB of memory at most, and nothing in it makes the reader run in circles.
    /// @return  False, with a diagnostic and nothing loaded, when the file is no such executable, has no version record
    ///          or a damaged one.
    bool Load(IFile* file);
    bool Load(IFileSystem* fileSystem, const char16_t* path);
    /// Forgets what was loaded.
    void Empty();

    /// A record may lack the fixed part; all its numbers are 0 then.
    bool HasFixedInfo() const { return m_hasFixedInfo; }
    const FixedInfo& GetFixedInfo() const { return m_fixed; }
    Number GetFileVersion() const { return m_fixed.fileVersion; }
    Number GetProductVersion() const { return m_fixed.productVersion; }

    /// The languages that the record says it has, and its tables, each in the record's order. The two need not agree.
    const TArray<Translation>& GetTranslations() const { return m_translations; }
    const TArray<StringTable>& GetStringTables() const { return m_tables; }

    /// A text by its name ("CompanyName", "FileDescription", "FileVersion", "ProductName" …), which disregards case:
    /// from the table of the first language that the record says it has and does have, else from the first table.
    /// @return  Empty when there is none.
    CString GetString(const CString& name) const;
    /// The same from one table.
    CString GetString(const CString& name, Translation translation) const;

    /// This library's own version, of the code that runs and not of the header that was compiled: three parts, then 0.
    static Number LibraryVersion();
    /// "1.2.3".
    static CString LibraryVersionText();

private:
    class RecordReader;

    const StringTable* find(Translation translation) const;

    FixedInfo m_fixed;
    bool m_hasFixedInfo = false;
    TArray<Translation> m_translations;
    TArray<StringTable> m_tables;
};

}  // namespace qv
