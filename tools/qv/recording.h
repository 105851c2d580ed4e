// Recordings: frames of counts or values behind a text header.
//
// Tags: KeyWrd "IMG"; xPixls and yPixls, the size of a frame; NumDPs, the number of frames ("auto": as many as the data
// segment holds); DaType, the element type; BytOrd, "LSBFirst" or "MSBFirst" (absent: LSBFirst). The data segment holds
// the frames one behind the other, each row by row from the top.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "qv/file.h"
#include "qv/saf_file.h"
#include "qv/typed_data.h"

namespace tool {

/// The words of the DaType tag. "Int8" is unsigned, as "UInt8" is; the signed byte is "SInt8".
struct ElementType {
    const char* word;
    qv::EDataType type;
};
/// The type of a DaType value; `none` when it is unknown.
qv::EDataType elementType(const std::string& word);
/// The word that is written for a type.
std::string elementWord(qv::EDataType type);

/// What a recording holds.
struct Layout {
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t frames = 0;
    qv::EDataType type = qv::EDataType::none;
    bool bigEndian = false;

    uint32_t pixels() const { return width * height; }
    uint32_t frameBytes() const { return pixels() * qv::DataTypeSize(type); }
};

/// An opened recording. Opening checks that the data segment holds exactly the frames that the tags promise.
class Recording {
public:
    /// Fails with a sentence that says what does not fit.
    explicit Recording(const std::string& path);

    const std::string& path() const { return m_path; }
    const Layout& layout() const { return m_layout; }
    const qv::CSAFFile& header() const { return m_header; }
    /// The value of a tag; empty when it is absent.
    std::string tag(const char16_t* name) const;

private:
    std::string m_path;
    qv::CSAFFile m_header;
    Layout m_layout;
};

/// Reads the frames of one recording, for one thread. Several readers may be at work on the same recording.
class FrameReader {
public:
    explicit FrameReader(const Recording& recording);

    /// Frame `index` in the machine's byte order; frameBytes() bytes at `out`.
    void read(uint32_t index, void* out);

private:
    std::string m_path;
    Layout m_layout;
    int64_t m_dataPosition;
    qv::TSharedPtr<qv::IFile> m_file;
};

/// Reverses the bytes of each of `count` elements of `size` bytes.
void reverseElements(void* data, uint32_t count, uint32_t size);

/// Fails with a sentence when a header could not hold a tag or give it back as it was.
void checkTagLine(const std::string& name, const std::string& value);

/// A path as a tag's line can hold it: of a long one the file's name, and marks in place of what would end the line.
std::string nameForTag(const std::string& path);

/// Sets the tags that describe `layout` (little-endian).
void setLayoutTags(qv::CSAFFile& header, const Layout& layout);

}  // namespace tool
