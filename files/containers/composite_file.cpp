#include "qv/composite_file.h"

#include <memory>
#include <mutex>

#include "qv/string.h"

namespace qv {

ICompositeFile::CRegister* ICompositeFile::pRegister = nullptr;

namespace {

std::once_flag registerMade;

ICompositeFile::CRegister& theRegister() {
    std::call_once(registerMade, [] { ICompositeFile::pRegister = new ICompositeFile::CRegister; });
    return *ICompositeFile::pRegister;
}

/// Calls `use` with each type whose test says so, until it returns true. A test may register further types.
template <class Use>
bool anyType(IFileSystem* fileSystem, const char16_t* path, Use use) {
    const auto& types = theRegister().types;
    for (uint32_t i = 0; i < types.size(); ++i) {
        const ICompositeFile::CreateFunction create = types[i].create;
        if (types[i].test(fileSystem, path) && use(create)) return true;
    }
    return false;
}

}  // namespace

ICompositeFile::~ICompositeFile() = default;
bool ICompositeFile::GetDefaultFile(char16_t*) { return false; }

uint32_t ICompositeFile::Register(const char16_t* name, CreateFunction create, TestFunction test) {
    auto& types = theRegister().types;
    if (name == nullptr || create == nullptr || test == nullptr) return 0xFFFFFFFFu;
    CRegister::REGISTER added{{}, create, test};
    StrCpy(added.name, name, CRegister::nameChars);
    for (const CRegister::REGISTER& type : types) {
        if (StrCmp(type.name, added.name) == 0) return 0xFFFFFFFFu;
    }
    return types.Add(added) ? types.size() - 1 : 0xFFFFFFFFu;
}

bool ICompositeFile::IsCompositeFile(IFileSystem* fileSystem, const char16_t* path) {
    return anyType(fileSystem, path, [](CreateFunction) { return true; });
}

ICompositeFile* ICompositeFile::OpenCompositeFile(IFileSystem* fileSystem, const char16_t* path) {
    std::unique_ptr<ICompositeFile> opened;
    (void)anyType(fileSystem, path, [&](CreateFunction create) {
        opened.reset(create());
        if (opened && opened->Open(fileSystem, path)) return true;
        opened.reset();
        return false;
    });
    return opened.release();
}

}  // namespace qv
