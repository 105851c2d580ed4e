// IPODFile and CPODFile: a table of parameters in a text file, with named columns, units and merging. CPODFile is built
// for files far larger than memory. Start with Load, FindColumn and GetValue.
#pragma once

#include <cstdint>
#include <memory>

#include "qv/api.h"
#include "qv/array.h"
#include "qv/file_system.h"
#include "qv/saf_file.h"
#include "qv/string.h"

namespace qv {

namespace Private {
class PodRows;
class PodWriter;
}  // namespace Private

/// A table of texts: columns with a name, a classification, units and a type, and rows.
///
/// Columns are numbered in the order of addition, and keep their number when others are removed; rows are numbered from
/// 0, and those behind a removed row move up at once.
/// Failure: false or null. Load and Save leave the reason in LastDiagnostic(), MergeWith in GetError().
/// Threads: one at a time.
class QV_API IPODFile {
public:
    /// No column, no row.
    static constexpr uint32_t none = 0xFFFFFFFFu;

    IPODFile() = default;
    IPODFile(const IPODFile&) = delete;
    IPODFile& operator=(const IPODFile&) = delete;
    virtual ~IPODFile();

    // Virtual operations ------------------------------------------------------------------------------------------

    /// An empty table with a new header, held in memory and temporary files until it is saved.
    virtual bool New() = 0;
    /// Replaces the table by a file's. Without `requireHeader` a file that has no header is taken as lines of names,
    /// units and classifications, and then rows.
    virtual bool Load(IFileSystem* fs, const char16_t* path, bool requireHeader) = 0;
    /// Writes the table to `path`. `reloadHeader` takes the tags from the file that is there instead of GetHeader()'s;
    /// `addPad` leaves room in the header for tags to come.
    virtual bool Save(IFileSystem* fs, const char16_t* path, bool reloadHeader, bool addPad) = 0;
    /// Forgets everything, unsaved changes too; New or Load must follow.
    virtual void Destroy() = 0;
    /// New or Load succeeded, and Destroy did not follow.
    virtual bool IsValid() const = 0;

    /// The first column in use with that name, without regard to case.
    virtual bool FindColumn(const char16_t* name, uint32_t& column) const = 0;
    /// Appends a column, number nParams() - 1 then, in which every row is empty. Its name may occur already. Null texts
    /// are empty ones; texts are cut to their fields.
    virtual bool AddColumn(const char16_t* name, const char16_t* classification, const char16_t* units,
                           const char16_t* type) = 0;
    /// Appends an empty row, number nDPs() - 1 then.
    virtual bool AddRow() = 0;
    /// Appends empty rows until there are at least `count`.
    virtual bool AllocRows(uint32_t count) = 0;
    /// Removes a row; those behind it move up by one.
    virtual bool RemoveRow(uint32_t row) = 0;
    /// Removes a column. Its number is not given again before the table is loaded anew.
    virtual bool RemoveCol(uint32_t column) = 0;

    /// The text of a cell, empty where nothing was stored; null for a row or column that is out of range or removed.
    /// Valid until the next call that is not const.
    virtual const char16_t* GetValue(uint32_t column, uint32_t row) = 0;
    /// Stores a text, which may be one that GetValue returned. Null stores the empty text.
    virtual bool PutValue(uint32_t column, uint32_t row, const char16_t* text) = 0;

    /// Sets the texts of a column that are not null.
    virtual bool UpdateColumn(uint32_t column, const char16_t* name, const char16_t* classification,
                              const char16_t* units, const char16_t* type) = 0;
    /// Gives the texts of a column for which a place is given.
    virtual bool GetColumnInfo(uint32_t column, CString* name, CString* classification, CString* units,
                               CString* type) const = 0;
    /// The number of rows.
    virtual uint32_t nDPs() const = 0;
    /// The number of columns, removed ones among them: every column's number is below it.
    virtual uint32_t nParams() const = 0;
    /// The tags of the file. Save sets NumDPs (unless it is "auto"), NParam and KeyWrd.
    virtual CSAFFile& GetHeader() = 0;
    /// The tag dictionary.
    virtual CTagFile* GetTagFile() const = 0;
    /// As FindColumn; `none` where there is no such column.
    virtual uint32_t GetColumnID(const char16_t* name) const = 0;

    // Access by name ----------------------------------------------------------------------------------------------

    /// One of a column's texts, looked up at each use.
    class QV_API CProperty {
    public:
        enum EText { textName, textClassification, textUnits, textType };
        CProperty(IPODFile* file, uint32_t column, EText which) : m_file(file), m_column(column), m_which(which) {}
        CProperty(const CProperty&) = default;
        /// Empty for a column that is not there.
        CString ToString() const;
        operator CString() const { return ToString(); }
        CProperty& operator=(const char16_t* text);
        /// Stores the other's text.
        CProperty& operator=(const CProperty& other);

    private:
        IPODFile* m_file;
        uint32_t m_column;
        EText m_which;
    };

    /// A cell, looked up at each use.
    class QV_API CValue {
    public:
        CValue(IPODFile* file, uint32_t column, uint32_t row) : m_file(file), m_column(column), m_row(row) {}
        CValue(const CValue&) = default;
        /// As GetValue.
        const char16_t* ToString() const { return m_file->GetValue(m_column, m_row); }
        operator const char16_t*() const { return ToString(); }
        /// The number that the text begins with; `absent` when there is none.
        double ToDouble(double absent = 0.0) const;
        int32_t ToLong(int32_t absent = 0) const;
        CValue& operator=(const char16_t* text);
        /// Stores the other cell's text.
        CValue& operator=(const CValue& other);
        /// Formats with "%0.10g" and "%d".
        CValue& operator=(double number);
        CValue& operator=(int32_t number);

    private:
        IPODFile* m_file;
        uint32_t m_column;
        uint32_t m_row;
    };

    /// A column by number.
    class QV_API CColumn {
    public:
        CColumn(IPODFile* file, uint32_t column);
        CColumn(const CColumn&) = default;
        CColumn& operator=(const CColumn&) = delete;  ///< Not to be taken for a copy of texts.
        uint32_t GetIndex() const { return m_column; }
        CValue operator[](uint32_t row) const { return CValue(m_file, m_column, row); }

    private:
        IPODFile* m_file;
        uint32_t m_column;

    public:
        CProperty name;
        CProperty classification;
        CProperty units;
        CProperty type;
    };

    /// The column of that name, added with classification "Unclassified", units "None" and an empty type when there is
    /// none. Where it cannot be added, the result stands for no column.
    CColumn operator[](const char16_t* name);

    // Units -------------------------------------------------------------------------------------------------------

    /// The place of a tag's unit, by the tag dictionary, in the table of unit factors; -1 for an unknown tag and for
    /// units that the table does not hold.
    int32_t GetUnitConversionIndex(const char16_t* tag) const;
    /// Whether `unit` is the dictionary's unit for a tag, without regard to case. True for a tag that the dictionary
    /// does not know or that has no unit.
    bool IsCorrectUnit(const char16_t* tag, const char16_t* unit) const;
    /// The place of a unit, by its long or short name and without regard to case, in the table of factors; -1 when it
    /// is not there.
    static int32_t UnitIndex(const char16_t* unit);
    /// Brings `value` from one unit into another. False, with nothing changed, when there is no way. Equal units need
    /// no factor.
    ///
    /// Factors are rounded: 1 meter counts as 39.408 inches. Times take, of the two factors of a pair, the whole one
    /// (60 seconds to the minute), and multiply or divide by it.
    static bool ConvertUnit(double& value, const char16_t* from, const char16_t* to);

    // Formatted values --------------------------------------------------------------------------------------------
    // A format is text with "%f(k)" where a floating number stands and "%d(k)" where a decimal integer does; the value
    // is the sum of each number times its k. "%d(60):%f(1)" reads "2:30.5" as 150.5. Other characters stand for
    // themselves; white space in front of a number, and behind the last part, is passed over.

    /// Reads `data`. False for data that do not match, for another letter behind the percent sign, and without the
    /// parenthesis; an empty (or null) format gives 0 and true.
    static bool GetValue(double& value, const char16_t* data, const char16_t* format);
    /// Writes `value`, numbers as "%0.10g" and "%I64d". The numbers with the greatest k take their whole multiples
    /// first, the one with the least takes the rest; without any %f the value is rounded to the least k. False for a
    /// format that GetValue refuses, a k of 0, and a value that is not finite or beyond 64 bits.
    static bool PutValue(double value, CString& buffer, const char16_t* format);

    // Merging -----------------------------------------------------------------------------------------------------

    /// Merges a column of another table into this one by a key column, which both have.
    ///
    /// Each row's key is looked up among the keys of `add`: the value comes from the two neighbours by linear
    /// interpolation, or from the nearest key (of two as near, the lower). A row outside the range of those keys is
    /// left as it is: empty when the column is new. Keys need no order; of equal ones the first counts.
    ///
    /// The column is this table's of that name, otherwise one that is added with the other's units, type and
    /// classification. Keys and values of `add` are converted into this table's units by ConvertUnit. A value that is
    /// taken from one key without conversion keeps its text to the letter, others are written by `valueFormat`. An
    /// empty value is none: a row that would need it is left as it is.
    ///
    /// Cyclic keys (in radians, microradians or degrees) are unwrapped in the order of the rows: a key is raised by the
    /// period, once, where that brings it nearer to its predecessor (the first key: nearer to the second). A key that
    /// is out of range is tried a period higher and lower as well. Keys in "IRIG" (seconds of the day) are left to
    /// `rollOver`.
    ///
    /// Nothing is changed unless all keys and values read. Memory: a window; the keys of `add` take 16 bytes each of a
    /// temporary file, and of memory only when they do not ascend, while they are sorted.
    /// @param keyFormat     How this table's keys read; null or empty: "%f(1)".
    /// @param addKeyFormat  How the other's do; the same.
    /// @param valueFormat   How values read and are written; the same. Not looked at for texts.
    /// @param interpolate   Values are numbers, unless the column's type is "Text". False: the nearest text.
    /// @param rollOver      A key that is smaller than its predecessor is raised in steps of 86400, whatever its unit.
    /// @param matched       Receives the number of rows whose key was in range.
    /// @return False with the reason in GetError().
    bool MergeWith(IPODFile& add, const char16_t* keyColumn, const char16_t* addColumn, const char16_t* keyFormat,
                   const char16_t* addKeyFormat, const char16_t* valueFormat, bool interpolate, bool rollOver,
                   uint32_t* matched = nullptr);

    /// The last message, "No Error." at first.
    void SetError(const CString& message) { m_error = message; }
    const CString& GetError() const { return m_error; }

private:
    CString m_error = u"No Error.";
};

/// A table in a file, held in bounded memory whatever the size of the file: an index of its lines in a temporary file,
/// a cache of 64 decoded rows, and changes in a cache of 32 cells and a second temporary file until they are saved.
///
/// The file (docs/formats/pod_table.md) is a header as of CSAFFile, lines of names, units, classifications and types,
/// and a line for each row. It stays open for reading, shared with readers, until the table is destroyed.
/// Limits: lines of 8192 bytes with their end (2048 for the descriptions), 4096 columns, rows that begin within the
/// first 4 GiB, an index of 1 GiB or 64 times the file. A file beyond these is refused, and so is what would have to be
/// written beyond them.
/// Cells hold 255 characters; what is longer in the file is read cut, and stays whole there unless it is changed. Texts
/// that no line can hold (with a line feed; with a double quote at the beginning, or together with a separator) are
/// refused: PutValue, AddColumn and UpdateColumn are false.
class QV_API CPODFile : public IPODFile {
public:
    /// A column's texts, terminated, and whether it is in use.
    struct COLUMN {
        char16_t name[128];
        char16_t classification[128];
        char16_t units[64];
        char16_t type[64];
        uint32_t state;  ///< 1 in use, 0 removed.
    };

    /// What a row's line in the file is like.
    struct LINE_INFO {
        int64_t offset = 0;   ///< In bytes from the beginning of the file; 0 for a row that has no line yet.
        uint32_t length = 0;  ///< In bytes, with its end.
        uint32_t fields = 0;
        uint32_t cut = 0;  ///< Fields that are longer than a cell.
    };

    CPODFile();
    ~CPODFile() override;

    bool New() override;
    bool Load(IFileSystem* fs, const char16_t* path, bool requireHeader) override;
    /// Works in a temporary file, which is then copied over `path`. Over the file that was loaded, the table is loaded
    /// from there anew: removed columns are gone, and the others numbered without gaps. Should the copy fail
    /// half-way, what there is of it is deleted, and the table goes on from the temporary file: save it elsewhere.
    /// Saved to another path, the table stays as it is, on the file that it was loaded from. Names, units,
    /// classifications and types are written where PNSize, PUSize, PCSize and PTSize say so. Refused, with nothing
    /// touched, are a header that would not read again (a tag of more than 511 bytes, or with an end of line) and rows
    /// whose lines another program moved about in the file since it was loaded.
    bool Save(IFileSystem* fs, const char16_t* path, bool reloadHeader, bool addPad) override;
    void Destroy() override;
    bool IsValid() const override { return m_open; }
    /// Changed since it was loaded or saved; a new table is.
    bool IsModified() const { return m_modified; }

    bool FindColumn(const char16_t* name, uint32_t& column) const override;
    /// Puts changes into the diff file and rewrites the index, which takes time by the number of rows. Without room for
    /// the changes the table stays as it is; should the index itself break off, the table is destroyed.
    bool AddColumn(const char16_t* name, const char16_t* classification, const char16_t* units,
                   const char16_t* type) override;
    bool AddRow() override;
    bool AllocRows(uint32_t count) override;
    /// Takes time by the number of rows behind it.
    bool RemoveRow(uint32_t row) override;
    bool RemoveCol(uint32_t column) override;
    const char16_t* GetValue(uint32_t column, uint32_t row) override;
    bool PutValue(uint32_t column, uint32_t row, const char16_t* text) override;
    using IPODFile::GetValue;
    using IPODFile::PutValue;
    bool UpdateColumn(uint32_t column, const char16_t* name, const char16_t* classification, const char16_t* units,
                      const char16_t* type) override;
    bool GetColumnInfo(uint32_t column, CString* name, CString* classification, CString* units,
                       CString* type) const override;
    uint32_t nDPs() const override;
    uint32_t nParams() const override { return m_columns.size(); }
    CSAFFile& GetHeader() override { return m_header; }
    CTagFile* GetTagFile() const override { return m_header.GetTagFile(); }
    uint32_t GetColumnID(const char16_t* name) const override;

    /// Replaces `to` by a new table with this one's tags, columns in use and values.
    bool MakeDuplicate(IPODFile& to);

    /// Bytes that a row takes in the index: 6 + 10 for each column.
    uint32_t GetRowEntrySize() const;
    /// Reads the line of a row. False for a row out of range, or a line that cannot be read any more.
    bool GetLineInfo(uint32_t row, LINE_INFO& info);

private:
    bool load(IFileSystem* fs, const CString& path, bool requireHeader);
    bool attach(TSharedPtr<IFile> file, int64_t dataPosition);
    bool makeHeaderless(IFile& file);
    bool readDescriptions(IFile& file);
    bool holds(uint32_t column) const { return column < m_columns.size() && m_columns.data()[column].state == 1; }
    bool refuse(const char16_t* expected, const CString& found, int64_t byte = -1);
    bool write(CSAFFile& header, IFile& file, bool addPad);
    bool writeDescriptions(CSAFFile& header, Private::PodWriter& writer);
    bool isOwnPath(IFileSystem* fs, const char16_t* path) const;
    bool replaceOwn(TSharedPtr<IFile> temporary, IFileSystem* fs, const CString& path);

    CSAFFile m_header;
    IFileSystem* m_fileSystem = nullptr;
    CString m_path;
    TArray<COLUMN> m_columns;
    std::unique_ptr<Private::PodRows> m_rows;
    bool m_open = false;
    bool m_modified = false;
};

}  // namespace qv
