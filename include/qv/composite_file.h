// ICompositeFile: an archive file as a file system, and the register of the archive types that a program knows.
#pragma once

#include <cstdint>

#include "qv/api.h"
#include "qv/array.h"
#include "qv/file_system.h"

namespace qv {

/// An archive whose contents are reached as a file system. The library has none of its own: an application derives its
/// types and registers them, and OpenCompositeFile picks the one that knows a file.
///
/// Threads: the register is made safely by any thread; registering and searching are not locked.
class QV_API ICompositeFile : public IFileSystem {
public:
    ~ICompositeFile() override;

    // Behind the operations of IFileSystem, in this order -----------------------------------------------------------

    /// Opens the archive at `path` of `fileSystem`; what was open is closed.
    virtual bool Open(IFileSystem* fileSystem, const char16_t* path) = 0;
    /// Ends the use of the archive; it may be opened anew.
    virtual void Close() = 0;
    /// The path of the file to show first, for a `buffer` of 512 characters; false (the default) when there is none.
    virtual bool GetDefaultFile(char16_t* buffer);

    // The register --------------------------------------------------------------------------------------------------

    using CreateFunction = ICompositeFile* (*)();
    using TestFunction = bool (*)(IFileSystem* fileSystem, const char16_t* path);

    class QV_API CRegister {
    public:
        static constexpr uint32_t nameChars = 128;
        struct REGISTER {
            char16_t name[nameChars] = {};
            CreateFunction create = nullptr;
            TestFunction test = nullptr;
        };
        TArray<REGISTER> types;
    };

    /// Adds a type of archive.
    /// @param name    compared exactly; cut at 127 characters.
    /// @param create  makes an object by `new`.
    /// @param test    whether the file is an archive of this type.
    /// @return  Its index; 0xFFFFFFFF, with nothing added, when the name is there already or an argument is null.
    static uint32_t Register(const char16_t* name, CreateFunction create, TestFunction test);
    /// Whether the test of a registered type says so.
    static bool IsCompositeFile(IFileSystem* fileSystem, const char16_t* path);
    /// The first registered type whose test says so and which opens the file. The object is the caller's to delete.
    /// Null when there is none.
    static ICompositeFile* OpenCompositeFile(IFileSystem* fileSystem, const char16_t* path);

    /// The one register; null until one of the functions above has been called. Never destroyed.
    static CRegister* pRegister;
};

}  // namespace qv
