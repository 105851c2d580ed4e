#include "qv/file_stream.h"

#include <cstdlib>
#include <cstring>
#include <new>

namespace qv {

IUnknown::~IUnknown() = default;

void* CoTaskMemAlloc(size_t bytes) { return std::malloc(bytes); }
void CoTaskMemFree(void* memory) { std::free(memory); }

namespace {

class CFileStream final : public IStream {
public:
    explicit CFileStream(TSharedPtr<IFile> file) : m_file(std::move(file)) {}

    HRESULT QueryInterface(const GUID& iid, void** object) override {
        if (object == nullptr) return E_INVALIDARG;
        const auto word = static_cast<uint16_t>(iid.Data1);
        const bool known = std::memcmp(iid.Data4, IID_IUnknown.Data4, sizeof iid.Data4) == 0 &&
                           (word == IID_IUnknown.Data1 || word == IID_IStream.Data1);
        *object = known ? static_cast<IStream*>(this) : nullptr;
        return known ? S_OK : E_NOINTERFACE;
    }
    uint32_t AddRef() override { return ++m_references; }
    uint32_t Release() override {
        if (m_references > 0) --m_references;
        const uint32_t left = m_references;
        if (left == 0) delete this;
        return left;
    }

    HRESULT Read(void* data, uint32_t count, uint32_t* read) override {
        const uint32_t done = m_file->Read(data, count);
        if (read != nullptr) *read = done;
        return S_OK;
    }
    HRESULT Write(const void* data, uint32_t count, uint32_t* written) override {
        const uint32_t done = m_file->Write(data, count);
        if (written != nullptr) *written = done;
        return S_OK;
    }
    HRESULT Seek(int64_t move, uint32_t origin, uint64_t* newPosition) override {
        if (origin > STREAM_SEEK_END) return E_INVALIDARG;
        const int64_t position = m_file->Seek(move, origin + IFile::fromBegin);
        if (newPosition != nullptr) *newPosition = static_cast<uint64_t>(position);
        return S_OK;
    }
    HRESULT SetSize(uint64_t size) override { return m_file->SetSize(static_cast<int64_t>(size)) ? S_OK : E_FAIL; }
    HRESULT CopyTo(IStream*, uint64_t, uint64_t*, uint64_t*) override { return E_NOTIMPL; }
    HRESULT Commit(uint32_t) override { return E_NOTIMPL; }
    HRESULT Revert() override { return E_NOTIMPL; }
    HRESULT LockRegion(uint64_t, uint64_t, uint32_t) override { return E_NOTIMPL; }
    HRESULT UnlockRegion(uint64_t, uint64_t, uint32_t) override { return E_NOTIMPL; }
    HRESULT Clone(IStream**) override { return E_NOTIMPL; }

    HRESULT Stat(STATSTG* stat, uint32_t flag) override {
        if (stat == nullptr) return E_INVALIDARG;
        *stat = STATSTG{};
        const IFileSystem::CDirectoryEntry info = m_file->GetFileInfo();
        stat->type = STGTY_STREAM;
        stat->cbSize = static_cast<uint64_t>(m_file->GetSize());
        const uint64_t ticks = info.modified.ToFileTime();
        stat->mtime = {static_cast<uint32_t>(ticks), static_cast<uint32_t>(ticks >> 32)};
        if ((flag & STATFLAG_NONAME) != 0) return S_OK;
        constexpr size_t nameBytes = 1024;
        static_assert(sizeof info.name <= nameBytes);
        stat->pwcsName = static_cast<char16_t*>(CoTaskMemAlloc(nameBytes));
        if (stat->pwcsName == nullptr) return E_OUTOFMEMORY;
        std::memcpy(stat->pwcsName, info.name, sizeof info.name);
        return S_OK;
    }

private:
    TSharedPtr<IFile> m_file;
    uint32_t m_references = 1;
};

}  // namespace

TCOMPtr<IStream> CreateFileStream(TSharedPtr<IFile> file) {
    if (!file) return {};
    return TCOMPtr<IStream>(new (std::nothrow) CFileStream(std::move(file)));
}

}  // namespace qv
