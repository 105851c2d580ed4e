// CINIStore: settings in an INI file that people edit as well.
#pragma once

#include <cstdint>
#include <string>

#include "qv/api.h"
#include "qv/config_store.h"
#include "qv/file.h"
#include "qv/shared_ptr.h"
#include "qv/string.h"

namespace qv {

class IFileSystem;

/// A store kept in an INI file. Its values are held in memory; Save writes them into the text that was loaded, so that
/// comments, blank and unknown lines, the order of lines, the spacing of a line and its line ending stay as they were.
///
/// Lines:     `name = value`; `[path]` begins the section of that path, and what stands in front of the first one
///            belongs to the store itself; a line that begins with `;` or `#` is a comment. A name with `/` in it
///            stands for the path. Everything else is an unknown line. Of several lines for one path the last one
///            counts; sections of one path are one.
/// Quotes:    a name, value or section path may stand in double quotes, in which \\ \" \n \r \t are escapes (a
///            backslash in front of anything else is itself). Without quotes the text counts as it stands, without the
///            white space around it. Behind a quoted value a comment may follow. What needs no quotes is written
///            without.
/// Types:     none are kept; GetType is typeString after a load.
/// Encoding:  UTF-8, with or without a byte-order mark, which a save keeps; a malformed sequence reads as U+FFFD and
///            stays in its line until that value is set. Lines end in LF or CR LF; new ones as the first line does.
/// Order:     after a load the values of a section come before its sections.
class QV_API CINIStore : public CMemStore {
public:
    /// The largest file that is taken, in bytes.
    static constexpr int64_t largestFile = int64_t{1} << 28;

    /// How many lines there are of each kind.
    struct SLineCounts {
        uint32_t blank = 0;
        uint32_t comment = 0;
        uint32_t section = 0;
        uint32_t value = 0;
        uint32_t unknown = 0;
    };

    CINIStore() = default;
    ~CINIStore() override;

    /// Replaces the contents by those of the file, from its position to its end. The first form opens a disk file,
    /// which Flush then writes to; also when there was no such file yet.
    /// @return  False, with the store empty, when the file cannot be read, is larger than `largestFile` or holds a NUL:
    ///          then it is no text.
    bool Load(const char16_t* path);
    bool Load(IFileSystem* fileSystem, const char16_t* path);
    bool Load(TSharedPtr<IFile> file);

    /// Writes the file. The first form writes a new disk file beside the old one, with the old one's permissions, and
    /// renames it over that, so that a failure leaves the old one whole; Flush then writes to it as well. The second
    /// form truncates what is there. The third cuts the file behind what it writes at the file's position.
    bool Save(const char16_t* path);
    bool Save(IFileSystem* fileSystem, const char16_t* path);
    bool Save(TSharedPtr<IFile> file);

    /// Saves to the disk file of the last Load or Save by path when a value was set or removed since. False when there
    /// is something to save and no such file: also behind a load that refused what it found, which is never
    /// overwritten.
    bool Flush() override;

    /// Of the text that was loaded or saved last. Any text without a NUL loads: one with unknown lines may be something
    /// else. Reads the text again.
    SLineCounts CountLines() const;

protected:
    bool write(View path, const SValue& value) override;
    bool remove(View path, uint32_t parts) override;

private:
    class Renderer;
    bool parse(std::string text);
    bool writeText(const TSharedPtr<IFile>& file, std::string text);

    std::string m_text;  ///< What was loaded or saved last: the frame of the next save.
    CString m_path;
    bool m_changed = false;
};

}  // namespace qv
