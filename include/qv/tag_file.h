// The tag dictionary: what the header tags of measurement files mean. CTagEntry is one entry, CTagFile the sorted list
// of them, GetTagFile() the one dictionary that every CSAFFile refers to. CTagArray, a plain name-value list, is
// independent of the dictionary.
#pragma once

#include <cstdint>

#include "qv/api.h"
#include "qv/array.h"
#include "qv/file.h"
#include "qv/file_system.h"
#include "qv/shared_ptr.h"
#include "qv/string.h"

namespace qv {

class CSBFile;
class CXMLFile;

/// One tag of the dictionary: name, description, type, bounds, permitted texts, category, units, how it is written.
/// The name may hold variables: "%3%" stands for exactly three digits, "%%" for one or more (see CTagFile::FindTag).
class QV_API CTagEntry {
public:
    // The values are those of the binary form.
    /// Type of the tag's value.
    enum class DATA_TYPE : int32_t { Text, Int16, Int32, Flt32, Flt64 };
    /// What the list of text values is for.
    enum class TEXT_VALUES_MODE : int32_t { Disabled, UseAsBounds, UseAsSuggestions };
    /// How an editor is to treat a change of the tag.
    enum class WRITE_MODE : int32_t { PromptForUpdate, ChangeCurrentOnly, ChangeAll, ReadOnly };
    /// Where the tag is written.
    enum class LOCATION : int32_t { Header, Include, Default };
    // clang-format off
    /// Unit of a numeric value.
    enum class UNITS : int32_t {
        None, Years, Days, Hours, Minutes, Seconds, Degrees, Meters, MetersPerSecond, Microns, Microradians, Klbf,
        Percent, Milimeters, Hertz, Kelvin, GramPerCubicMeter, Milibar, PartsPerMillion, Kilometers
    };
    /// Comment marks a tag that is a comment on the tag below it.
    enum class CATEGORY : int32_t {
        Misc, FileInfo, ClassificationInfo, MissionInfo, TimeInfo, EUDInfo, SensorInfo, TargetInfo, InstrumentInfo,
        ReferencedFiles, ImpactLaunchInfo, UncertaintyInfo, Imager, Data, ActiveSource, Atmospheric, QDX, Comment
    };
    // clang-format on
    /// How many categories there are.
    static constexpr uint32_t categoryCount = 18;

    void SetName(const CString& name) { m_name = name; }
    const CString& GetName() const { return m_name; }
    void SetDescription(const CString& description) { m_description = description; }
    const CString& GetDescription() const { return m_description; }
    void SetDataType(DATA_TYPE type) { m_dataType = type; }
    DATA_TYPE GetDataType() const { return m_dataType; }
    /// Lowest and highest value of a numeric tag, and whether they are in use.
    void SetNumericBounds(bool use, double low, double high);
    void GetNumericBounds(bool& use, double& low, double& high) const;
    void SetTextValuesMode(TEXT_VALUES_MODE mode) { m_textValuesMode = mode; }
    TEXT_VALUES_MODE GetTextValuesMode() const { return m_textValuesMode; }
    void SetCategory(CATEGORY category) { m_category = category; }
    CATEGORY GetCategory() const { return m_category; }
    void SetWriteMode(WRITE_MODE mode) { m_writeMode = mode; }
    WRITE_MODE GetWriteMode() const { return m_writeMode; }
    void SetUnits(UNITS units) { m_units = units; }
    UNITS GetUnits() const { return m_units; }
    void SetLocation(LOCATION location) { m_location = location; }
    LOCATION GetLocation() const { return m_location; }

    /// Appends a text value; false without memory.
    bool AddTextValue(const char16_t* value);
    /// False past the end.
    bool RemoveTextValue(uint32_t index);
    /// The text value at `index`; null past the end.
    const char16_t* GetTextValue(uint32_t index) const;
    uint32_t nTextValues() const { return m_textValues.size(); }
    void RemoveAllTextValues() { m_textValues.Empty(); }
    /// The same as RemoveAllTextValues.
    void Destroy() { RemoveAllTextValues(); }

    /// The entry in the dictionary's binary form. `version` (0 to 3) says which fields are there. False on a short
    /// write, or when the file ends early or promises more text values than it can hold; what was read stays.
    /// Bounds of type Flt32 are not stored: after a load they are whatever the entry held.
    bool Save(IFile& file) const;
    bool Load(IFile& file, unsigned char version);
    /// Adds the entry as last child of the cursor's node, or reads the TagEntry element at the cursor. Load is false
    /// for an element of another name. The cursor stays where it was; in an empty tree the entry becomes the root.
    bool Save(CXMLFile& xml) const;
    bool Load(CXMLFile& xml);
    /// The same with an element of the structured binary form. An attribute that is absent, or of another type, is
    /// empty, false or 0.
    bool Save(CSBFile& file) const;
    bool Load(CSBFile& file);

    /// Display texts. XToStr of a value outside the table gives the table's first text ("Include" for locations);
    /// StrToX compares without regard to case, and unknown text is value 0 (and false).
    static const char16_t* DataTypeToStr(DATA_TYPE value);
    static const char16_t* TextValuesModeToStr(TEXT_VALUES_MODE value);
    static const char16_t* CategoryToStr(CATEGORY value);
    static const char16_t* LocationToStr(LOCATION value);
    static const char16_t* UnitsToStr(UNITS value);
    static const char16_t* WriteModeToStr(WRITE_MODE value);
    static bool StrToDataType(const char16_t* text, DATA_TYPE& value);
    static bool StrToTextValuesMode(const char16_t* text, TEXT_VALUES_MODE& value);
    static bool StrToCategory(const char16_t* text, CATEGORY& value);
    static bool StrToLocation(const char16_t* text, LOCATION& value);
    static bool StrToUnits(const char16_t* text, UNITS& value);
    static bool StrToWriteMode(const char16_t* text, WRITE_MODE& value);
    static DATA_TYPE StrToDataType(const char16_t* text);
    static TEXT_VALUES_MODE StrToTextValuesMode(const char16_t* text);
    static CATEGORY StrToCategory(const char16_t* text);
    static LOCATION StrToLocation(const char16_t* text);
    static UNITS StrToUnits(const char16_t* text);
    static WRITE_MODE StrToWriteMode(const char16_t* text);

private:
    bool loadBounds(IFile& file, uint16_t flags);
    bool saveBounds(IFile& file, uint16_t flags) const;
    bool loadTextValues(IFile& file, uint16_t flags);
    uint16_t flags() const;

    CString m_name = Private::sharedEmptyText();
    CString m_description = Private::sharedEmptyText();
    DATA_TYPE m_dataType = DATA_TYPE::Text;
    bool m_useNumericBounds = false;
    double m_lowBound = 0.0;
    double m_highBound = 0.0;
    TEXT_VALUES_MODE m_textValuesMode = TEXT_VALUES_MODE::Disabled;
    TArray<CString> m_textValues;
    CATEGORY m_category = CATEGORY::Misc;
    WRITE_MODE m_writeMode = WRITE_MODE::PromptForUpdate;
    UNITS m_units = UNITS::None;
    LOCATION m_location = LOCATION::Header;
};

extern template class QV_API TArray<CTagEntry>;

/// The dictionary: entries sorted by name without regard to case. Loads and saves sort; AddTagEntry does not, and a
/// lookup before the next Sort may miss. Failures are false results with a diagnostic; a failed load keeps what it
/// read.
class QV_API CTagFile : public TArray<CTagEntry> {
public:
    /// Appends a copy; false when the name is already there.
    bool AddTagEntry(const CTagEntry& entry);
    bool RemoveTagEntry(uint32_t index) { return Remove(index); }
    /// The entry at `index`; past the end a shared empty one.
    CTagEntry& GetTagEntry(uint32_t index);
    CTagEntry& operator[](uint32_t index) { return GetTagEntry(index); }
    /// By name without regard to case, as FindTag wants it.
    void Sort();
    void Destroy() { TArray<CTagEntry>::Destroy(); }

    /// Finds the entry whose name matches a tag's: equal without regard to case, with each variable of the entry's name
    /// standing for digits. A binary search: among names with variables the literal text decides the order.
    bool FindTag(const char16_t* name, uint32_t& index) const;
    /// Appends the value of each variable of entry `index` as found in `name`, which is assumed to match. A variable
    /// counts at most 31 digits. False when a percent sign has no partner or there is no such entry.
    bool GetVars(const char16_t* name, uint32_t index, TArray<int32_t>& vars) const;
    /// Orders two tag names. Two tags of one series are ordered by their variables, the rightmost first; all others by
    /// name without regard to case.
    int CompareTags(const char16_t* lhs, const char16_t* rhs) const;
    /// The tag is known and of the comment category.
    bool IsComment(const char16_t* name) const;

    /// Loads any form, told apart by the first bytes; saves the binary form.
    bool Load(const char16_t* path);
    bool Load(IFileSystem* fs, const char16_t* path);
    bool Load(TSharedPtr<IFile> file);
    bool Save(const char16_t* path);
    bool Save(IFileSystem* fs, const char16_t* path);
    bool Save(TSharedPtr<IFile> file);

    /// The XML form alone.
    bool LoadXML(const char16_t* path);
    bool LoadXML(IFileSystem* fs, const char16_t* path);
    bool LoadXML(TSharedPtr<IFile> file);
    bool SaveXML(const char16_t* path);
    bool SaveXML(IFileSystem* fs, const char16_t* path);
    bool SaveXML(TSharedPtr<IFile> file);

    /// The binary form alone: versions 0 to 3 are read, 3 is written.
    bool LoadBinary(const char16_t* path);
    bool LoadBinary(IFileSystem* fs, const char16_t* path);
    bool LoadBinary(TSharedPtr<IFile> file);
    bool SaveBinary(const char16_t* path);
    bool SaveBinary(IFileSystem* fs, const char16_t* path);
    bool SaveBinary(TSharedPtr<IFile> file);

    /// The structured binary form alone (qv/sb_file.h): it keeps all that the XML form does, numbers as numbers.
    bool LoadSBF(const char16_t* path);
    bool LoadSBF(IFileSystem* fs, const char16_t* path);
    bool LoadSBF(TSharedPtr<IFile> file);
    bool SaveSBF(const char16_t* path);
    bool SaveSBF(IFileSystem* fs, const char16_t* path);
    bool SaveSBF(TSharedPtr<IFile> file);
};

/// The process's dictionary, empty until somebody loads it. Made safely on first use; after that load it once, then
/// only read it.
QV_API CTagFile& GetTagFile();

/// A plain list of named values, in order of addition. Names compare without regard to case.
class QV_API CTagArray {
public:
    /// A name and a value, which is always text.
    struct QV_API TAG {
        CString name;
        CString value;
        TAG& operator=(const char16_t* text);
        /// Formats with "%d" and "%g".
        TAG& operator=(int32_t number);
        TAG& operator=(double number);
        operator const char16_t*() const { return value.c_str(); }
    };

    CTagArray() = default;

    /// The first match, or 0xFFFFFFFF.
    uint32_t FindTag(const char16_t* name) const;
    bool Exists(const char16_t* name) const;
    /// The value; null when there is no such tag.
    const char16_t* GetTagValue(const char16_t* name) const;
    const char16_t* Get(const char16_t* name) const { return GetTagValue(name); }
    /// Replaces the first match, otherwise appends; a null name does nothing.
    void SetTagValue(const char16_t* name, const char16_t* value);
    void Set(const char16_t* name, const char16_t* value) { SetTagValue(name, value); }
    /// Removes the first match; false when there is none.
    bool RemoveTag(const char16_t* name);
    bool Remove(const char16_t* name) { return RemoveTag(name); }

    /// Index 0 to nItems() inclusive (nItems() itself adds a tag); any other index gives a shared dummy.
    TAG& operator[](int32_t index);
    /// The tag of that name, appended with an empty value when it is absent.
    TAG& operator[](const char16_t* name);
    uint32_t nItems() const { return m_tags.size(); }
    void Empty() { m_tags.Empty(); }
    const TAG* begin() const { return m_tags.begin(); }
    const TAG* end() const { return m_tags.end(); }

private:
    TArray<TAG> m_tags;
};

}  // namespace qv
