// CSAFFile: the text header of a measurement file, read, changed and written back in place.
//
// A file is a run of lines "name value\r\n" that begins with HdSize, then padding lines, "DATA\r\n" and the binary data
// segment. The padding absorbs changes of the header, so that the data need not be rewritten. Start with Load, [] and
// Save; GetDataPosition() says where the data begin.
#pragma once

#include <cstdint>

#include "qv/api.h"
#include "qv/array.h"
#include "qv/file.h"
#include "qv/file_system.h"
#include "qv/shared_ptr.h"
#include "qv/string.h"

namespace qv {

class CTagFile;

/// One header line. Values are always text.
struct SAF_TAG {
    CString name;  ///< Without blanks.
    CString value;
};

extern template class QV_API TArray<SAF_TAG>;

/// What saving a header in place does to the file.
struct SAF_SAVE_PLAN {
    int64_t insert = 0;  ///< Bytes opened at the front of the file; the data move up by as many.
    int64_t remove = 0;  ///< Bytes closed there; the data move down.
    uint32_t pad = 0;    ///< Bytes of padding afterwards.

    /// The data are not left where they are.
    bool movesData() const { return insert != 0 || remove != 0; }
};

/// The header of a measurement file.
///
/// After New or Load, tag 0 is HdSize and the last tag is DATA with an empty value; the writer puts out every tag but
/// the last and then a fixed DATA line, so a last tag of another name never reaches the file.
/// Names compare without regard to case and take the first match; a name may occur more than once. A name cannot hold a
/// blank, and a value loses its leading and trailing blanks on the way through a file.
/// Failure: false, with a diagnostic; the tags are not to be used after a failed Load. Header writes are not checked.
/// Threads: one at a time.
class QV_API CSAFFile {
public:
    /// A tag by name, looked up at each use. Holds the caller's name pointer, so it is for use within one expression.
    class QV_API CTagValue {
    public:
        CTagValue(CSAFFile* file, const char16_t* name) : m_file(file), m_name(name) {}

        /// The text; null when the tag is absent.
        operator const char16_t*() const;
        const char16_t* ToString() const;
        bool Exists() const;
        /// The leading number of the text, 0 when there is none or the tag is absent.
        operator int32_t() const;
        operator double() const;
        /// The same, with a value for the absent tag.
        int32_t ToLong(int32_t absent) const;
        double ToDouble(double absent) const;
        CTagValue& operator=(const char16_t* text);
        /// Formats with "%d".
        CTagValue& operator=(int32_t number);
        /// Formats with "%e": seven digits. Set a text to keep more.
        CTagValue& operator=(double number);

    private:
        CSAFFile* m_file;
        const char16_t* m_name;
    };

    /// No tags and no file.
    CSAFFile();

    /// Replaces all tags by an empty header (HdSize "auto", DATA). With `keepFile` the object stays attached to its
    /// file and data, so that a save replaces that file's header. Always true.
    bool New(bool keepFile);
    /// Forgets the file and all tags; New or Load must follow.
    void Destroy();
    /// Forgets the file and keeps the tags: the next save writes a new file without data.
    void DropData();
    /// Begins `to` afresh and copies the tags between HdSize and DATA.
    bool MakeDuplicate(CSAFFile& to) const;

    /// Byte offset of the data segment; 0 without a file.
    uint32_t GetDataPosition() const { return m_dataPosition; }
    IFileSystem* GetFileSystem() const { return m_fileSystem; }
    const CString& GetFilename() const { return m_path; }
    CTagFile* GetTagFile() const { return m_tagFile; }
    uint32_t nTags() const { return m_tags.size(); }
    /// The tag at `index`; an index past the end extends the array.
    SAF_TAG& operator[](uint32_t index) { return m_tags[index]; }
    const SAF_TAG& operator[](uint32_t index) const { return m_tags[index]; }
    CTagValue operator[](const char16_t* name) { return CTagValue(this, name); }

    /// The value; null when there is no such tag.
    const char16_t* GetTagValue(const char16_t* name) const;
    bool FindTag(const char16_t* name, uint32_t& index) const;
    /// Inserts before the last tag, without looking for a duplicate.
    bool AddTag(const char16_t* name, const char16_t* value);
    /// Replaces the first match, or inserts before the last tag. False when there are no tags at all.
    bool SetTagValue(const char16_t* name, const char16_t* value);
    /// Sets by index, extending the array when needed. Always true.
    bool SetTagValue(uint32_t index, const char16_t* value);
    bool RemoveTag(const char16_t* name);
    bool RemoveTag(uint32_t index);

    /// The file begins with "HdSize" in any case; nothing else is looked at.
    static bool IsSAFFile(IFileSystem* fs, const char16_t* path);

    /// Reads a header. The forms with a path attach the object to that file, the form with an open file does not; it
    /// reads from the file's beginning and leaves the file behind the header.
    /// A header line is at most 511 bytes long; a longer one ends the reading.
    bool Load(const char16_t* path);
    bool Load(IFileSystem* fs, const char16_t* path);
    bool Load(TSharedPtr<IFile> file);

    /// Writes the header in place: the pad absorbs the change, and only when fewer than 16 or more than 4096 bytes of
    /// it would be left is the front of the file spliced, to a pad of 2048. A file without data is cut to its header.
    /// False, with no header written, when the data could not be moved.
    bool Save();
    /// In place when `path` is null or the object's own file. For an object without a file: a new file, with a pad of
    /// 2048 when `addPad`. Otherwise a copy of the object's file with its data, padded when there are data.
    /// The object then belongs to the new file. Paths compare without regard to case, also where the disk tells them
    /// apart: "A.saf" names the object's own file "a.saf".
    bool Save(const char16_t* path, bool addPad);
    bool Save(IFileSystem* fs, const char16_t* path, bool addPad);

    /// Writes the header into an open file. `dataPosition` is where its data begin (0 with an empty file) and receives
    /// where they begin afterwards. SaveTo starts from 0: on a file that has content it inserts at the front.
    /// The object's own path and data position are not touched. Always true: a header that could not be written leaves
    /// its diagnostic, here as in Save, and none is written over data that could not be moved.
    bool SaveTo(TSharedPtr<IFile> file, uint32_t& dataPosition, bool addPad);
    bool Update(TSharedPtr<IFile> file, uint32_t& dataPosition, bool addPad);

    /// What Save() would do to a file that has data behind its header. Nothing is moved while the pad absorbs the
    /// change.
    SAF_SAVE_PLAN PlanSave() const;

    /// Bytes of the header without padding, from "HdSize" to the end of "DATA\r\n".
    uint32_t HeaderSize() const;

    /// Moves the group headings (and their comments) of recognised groups to the front, behind HdSize.
    bool BubbleGroups();
    /// Also sorts every tag into its category's group, in the dictionary's order; comments stay with the tag below
    /// them. With `createGroups` a heading is made for each group that has none.
    bool SortByGroups(bool createGroups);

private:
    SAF_TAG* findTag(const char16_t* name);
    bool parse(IFile& file);
    bool addLine(const char* line, int32_t& expectedSize, uint32_t position, bool& ended);
    bool saveNew(IFileSystem* fs, const char16_t* path, bool addPad);
    bool saveCopy(IFileSystem* fs, const char16_t* path);
    bool saveInPlace();
    void writeHeader(IFile& file, uint32_t pad);

    CString m_path;
    IFileSystem* m_fileSystem = nullptr;
    uint32_t m_dataPosition = 0;
    CTagFile* m_tagFile;
    TArray<SAF_TAG> m_tags;
};

/// The header's own test: writes files with and without data and with a pad, changes their tags in nine ways, saves
/// them as new, in place and under another name, and compares tags and data with what they began from. Works in the
/// folder "safTest" below the system's temporary folder and writes its report there to "safTest.log".
/// @param report  Receives the report's lines.
/// @return True when every case passed.
QV_API bool safTest(TArray<CString>& report);
QV_API bool safTest();
/// The same in a folder of the caller's choice, which is created when absent.
QV_API bool safTest(const char16_t* folder, TArray<CString>& report);

}  // namespace qv
