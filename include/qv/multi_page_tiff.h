// CMultiPageTIFFFile: stacks of images in one TIFF file, read and written page by page.
#pragma once

#include <cstdint>

#include "qv/api.h"
#include "qv/file.h"
#include "qv/shared_ptr.h"
#include "qv/typed_data.h"

namespace qv {

class IFileSystem;

/// A TIFF file with any number of pages, which may differ in size and element type.
///
/// Element types: uint16, flt32, flt64 and rgb24, stored as SaveTIFFRaw does; reading takes whatever LoadTIFFRaw takes.
/// Pages count from 0, in the order of the file's chain of directories.
/// Cost:    opening follows the chain once; reading a page goes straight to it; appending does not look at earlier
/// ones. Failure: false with a diagnostic. A page that cannot be read does not spoil the others; a page that could not
/// be
///          written leaves the file as Close would have left it before.
/// Sizes:   a stack that is to pass 4 GiB has to be created as a big one.
/// Ownership: shares the file from opening to Close.
/// Threads: none of it is thread-safe.
class QV_API CMultiPageTIFFFile {
public:
    CMultiPageTIFFFile();
    CMultiPageTIFFFile(const CMultiPageTIFFFile&) = delete;
    CMultiPageTIFFFile& operator=(const CMultiPageTIFFFile&) = delete;
    /// Closes.
    ~CMultiPageTIFFFile();

    // Each of these closes what was open.

    /// Opens a stack for reading. False for what is no TIFF file, or has a chain that leads nowhere or runs in a
    /// circle.
    bool Open(const TSharedPtr<IFile>& file);
    bool Open(IFileSystem* fs, const char16_t* path);
    /// Begins a new stack in place of the file's contents.
    /// @param big  Writes the form for files beyond 4 GiB (BigTIFF), which some readers do not know.
    bool Create(const TSharedPtr<IFile>& file, bool big = false);
    /// A stack without a page is no TIFF file: Close deletes it.
    bool Create(IFileSystem* fs, const char16_t* path, bool big = false);
    /// Opens a stack for reading and for further pages behind the last one. The file has to permit both.
    bool OpenToAppend(const TSharedPtr<IFile>& file);
    bool OpenToAppend(IFileSystem* fs, const char16_t* path);

    bool IsOpen() const { return m_state != nullptr; }
    /// Ends the work and gives up the file. Without a stack true.
    /// @return  False when the last bytes could not be written.
    bool Close();

    /// The number of pages, those appended included; 0 without a stack.
    uint32_t GetPageCount() const;

    /// @param page  Below GetPageCount(), else false.
    /// @param type  `none` for pixels of another kind, which ReadPage does not take.
    bool GetPageInfo(uint32_t page, uint32_t& width, uint32_t& height, EDataType& type);

    /// Reads the values of a page without a change, as LoadTIFFRaw does.
    /// @param buffer  Receives width * height elements, row by row from the top.
    /// @param size    Bytes of the buffer; false when they do not suffice.
    bool ReadPage(uint32_t page, void* buffer, uint64_t size);

    /// Writes a page behind the last one. The file is whole after each.
    /// @param data  width * height elements, row by row from the top.
    /// @param type  uint16, flt32, flt64 or rgb24; false for any other.
    bool AppendPage(const void* data, uint32_t width, uint32_t height, EDataType type);

private:
    struct State;
    State* m_state = nullptr;
};

}  // namespace qv
