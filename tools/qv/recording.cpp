#include "recording.h"

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <limits>

#include "command.h"
#include "places.h"
#include "qv/diagnostic.h"
#include "qv/file_system.h"
#include "source.h"
#include "text.h"

namespace tool {

namespace {

using qv::EDataType;

// The first word of a type is the one that is written.
constexpr ElementType elementTypes[] = {
    {"SInt8", EDataType::int8},    {"UInt8", EDataType::uint8},   {"Int8", EDataType::uint8},
    {"Int16", EDataType::int16},   {"UInt16", EDataType::uint16}, {"Int32", EDataType::int32},
    {"UInt32", EDataType::uint32}, {"Int64", EDataType::int64},   {"UInt64", EDataType::uint64},
    {"Flt32", EDataType::flt32},   {"Flt64", EDataType::flt64},   {"RGB24", EDataType::rgb24},
};

/// The longest header line that can be read back, its end included.
constexpr size_t longestLineBytes = 512;
constexpr uint32_t openShared = 0x2 | 0x10 | 0x200;  // existing, read, share reading

/// A positive number that a tag must hold.
uint32_t positiveTag(qv::CSAFFile& header, const std::string& path, const char16_t* name) {
    const auto value = header[name];
    if (!value.Exists()) throw Failure(Exit::damaged, path + ": the tag " + narrow(name) + " is missing");
    const int32_t parsed = value;
    if (parsed <= 0) {
        throw Failure(Exit::damaged,
                      path + ": the tag " + narrow(name) + " is \"" + narrow(value.ToString()) + "\", not a count");
    }
    return static_cast<uint32_t>(parsed);
}

bool isMostSignificantFirst(const std::string& path, const std::string& order) {
    const qv::CString word = wide(order);
    for (const char16_t* known : {u"", u"LSBFirst", u"little", u"LittleEndian"}) {
        if (word.CompareNoCase(known) == 0) return false;
    }
    for (const char16_t* known : {u"MSBFirst", u"big", u"BigEndian"}) {
        if (word.CompareNoCase(known) == 0) return true;
    }
    throw Failure(Exit::damaged, path + ": the tag BytOrd is \"" + order + "\", neither LSBFirst nor MSBFirst");
}

}  // namespace

EDataType elementType(const std::string& word) {
    for (const ElementType& known : elementTypes) {
        if (wide(known.word).CompareNoCase(wide(word).c_str()) == 0) return known.type;
    }
    return EDataType::none;
}

std::string elementWord(EDataType type) {
    for (const ElementType& known : elementTypes) {
        if (known.type == type) return known.word;
    }
    return "unknown";
}

std::string Recording::tag(const char16_t* name) const { return narrow(m_header.GetTagValue(name)); }

Recording::Recording(const std::string& path) : m_path(path) {
    qv::IFileSystem& disk = files();
    qv::ClearDiagnostic();
    requireFile(path);
    const auto info = disk.GetFileInfo(wide(path).c_str());
    if (!qv::CSAFFile::IsSAFFile(&disk, wide(path).c_str())) {
        throw diagnosed(Exit::wrongKind, path, "is no recording (it does not begin with HdSize)");
    }
    if (!m_header.Load(&files(), wide(path).c_str())) throw diagnosed(Exit::damaged, path, "has a damaged header");

    m_layout.width = positiveTag(m_header, path, u"xPixls");
    m_layout.height = positiveTag(m_header, path, u"yPixls");
    const std::string word = tag(u"DaType");
    m_layout.type = elementType(word);
    if (m_layout.type == EDataType::none) {
        throw Failure(Exit::damaged, path + ": the tag DaType is \"" + word + "\", which is no known element type");
    }
    m_layout.bigEndian = isMostSignificantFirst(path, tag(u"BytOrd"));

    const uint64_t frameBytes = uint64_t{m_layout.width} * m_layout.height * qv::DataTypeSize(m_layout.type);
    if (frameBytes > 0x40000000)
        throw Failure(Exit::damaged, path + ": a frame would have " + bytes(double(frameBytes)));
    const auto dataBytes = static_cast<uint64_t>(std::max<int64_t>(info.size - m_header.GetDataPosition(), 0));
    const bool automatic = wide(tag(u"NumDPs")).CompareNoCase(u"auto") == 0;
    const uint64_t frames = automatic ? dataBytes / frameBytes : positiveTag(m_header, path, u"NumDPs");
    if (dataBytes != frames * frameBytes || frames == 0 || frames > std::numeric_limits<int32_t>::max()) {
        throw Failure(Exit::damaged, path + ": expected " + std::to_string(frames) + " frames of " +
                                         std::to_string(frameBytes) + " bytes, found " + std::to_string(dataBytes) +
                                         " bytes of data" +
                                         (dataBytes % frameBytes != 0 ? " (the last frame is cut off)" : ""));
    }
    m_layout.frames = static_cast<uint32_t>(frames);
}

FrameReader::FrameReader(const Recording& recording)
    : m_path(recording.path()),
      m_layout(recording.layout()),
      m_dataPosition(recording.header().GetDataPosition()),
      m_file(files().CreateFileW(wide(recording.path()).c_str(), openShared)) {
    if (!m_file) throw diagnosed(Exit::io, m_path, "cannot be opened");
}

void FrameReader::read(uint32_t index, void* out) {
    m_file->SetPosition(m_dataPosition + int64_t{index} * m_layout.frameBytes());
    if (!m_file->ReadBytes(out, m_layout.frameBytes())) {
        throw Failure(Exit::io, m_path + ": frame " + std::to_string(index) + " cannot be read");
    }
    if (m_layout.bigEndian) reverseElements(out, m_layout.pixels(), qv::DataTypeSize(m_layout.type));
}

void reverseElements(void* data, uint32_t count, uint32_t size) {
    auto* element = static_cast<std::byte*>(data);
    if (size == 2) {  // counts: by far the most frequent, and a loop that the compiler turns into shuffles
        for (uint32_t i = 0; i < count; ++i) std::swap(element[2 * i], element[2 * i + 1]);
    } else if (size == 4 || size == 8) {
        for (uint32_t i = 0; i < count; ++i, element += size) std::reverse(element, element + size);
    }
}

void checkTagLine(const std::string& name, const std::string& value) {
    if (name.empty() || name.find_first_of(" \r\n") != std::string::npos) {
        throw Failure(Exit::usage, "\"" + name + "\" cannot be a tag's name");
    }
    for (const char16_t* reserved : {u"HdSize", u"DATA", u"saf_padding"}) {
        if (wide(name).CompareNoCase(reserved) == 0) {
            throw Failure(Exit::usage, name + " belongs to the header itself and cannot be changed");
        }
    }
    const bool trimmed = !value.empty() && (value.front() == ' ' || value.back() == ' ');
    if (trimmed || value.find_first_of("\r\n") != std::string::npos) {
        throw Failure(Exit::usage, name + ": a value with blanks at its ends or with line breaks is lost in the file");
    }
    if (name.size() + value.size() + 3 > longestLineBytes) {
        throw Failure(Exit::usage,
                      name + ": a tag's line holds at most " + std::to_string(longestLineBytes - 3) + " bytes");
    }
}

std::string nameForTag(const std::string& path) {
    constexpr size_t longest = 400;
    std::string name = path.size() <= longest ? path : std::filesystem::path(path).filename().string();
    std::replace_if(
        name.begin(), name.end(), [](char c) { return c == '\r' || c == '\n'; }, '?');
    return name;
}

void setLayoutTags(qv::CSAFFile& header, const Layout& layout) {
    header[u"KeyWrd"] = u"IMG";
    header[u"xPixls"] = static_cast<int32_t>(layout.width);
    header[u"yPixls"] = static_cast<int32_t>(layout.height);
    header[u"NumDPs"] = static_cast<int32_t>(layout.frames);
    header[u"DaType"] = wide(elementWord(layout.type)).c_str();
    header[u"BytOrd"] = u"LSBFirst";
}

}  // namespace tool
