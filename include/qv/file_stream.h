// IStream: the customary component interface of a byte stream, and CreateFileStream, which shows an IFile through it.
// The structures and the order of the virtual functions are those that such components have everywhere.
#pragma once

#include <cstdint>
#include <utility>

#include "qv/api.h"
#include "qv/file.h"
#include "qv/guid.h"
#include "qv/shared_ptr.h"

namespace qv {

/// Result of a component's function; below 0 is a failure.
using HRESULT = int32_t;
inline constexpr HRESULT S_OK = 0;
inline constexpr HRESULT E_NOTIMPL = static_cast<HRESULT>(0x80004001u);
inline constexpr HRESULT E_NOINTERFACE = static_cast<HRESULT>(0x80004002u);
inline constexpr HRESULT E_FAIL = static_cast<HRESULT>(0x80004005u);
inline constexpr HRESULT E_OUTOFMEMORY = static_cast<HRESULT>(0x8007000Eu);
inline constexpr HRESULT E_INVALIDARG = static_cast<HRESULT>(0x80070057u);

inline constexpr GUID IID_IUnknown = {0, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
inline constexpr GUID IID_IStream = {12, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};

/// A reference-counted component.
class QV_API IUnknown {
public:
    virtual HRESULT QueryInterface(const GUID& iid, void** object) = 0;
    virtual uint32_t AddRef() = 0;   ///< The new count.
    virtual uint32_t Release() = 0;  ///< The new count; at 0 the object is gone.

protected:
    IUnknown() = default;
    IUnknown(const IUnknown&) = default;
    IUnknown& operator=(const IUnknown&) = default;
    virtual ~IUnknown();
};

class QV_API ISequentialStream : public IUnknown {
public:
    virtual HRESULT Read(void* data, uint32_t count, uint32_t* read) = 0;
    virtual HRESULT Write(const void* data, uint32_t count, uint32_t* written) = 0;
};

/// 100 ns since 1601, in two halves.
struct FILETIME {
    uint32_t dwLowDateTime = 0;
    uint32_t dwHighDateTime = 0;
};

/// What IStream::Stat tells.
struct STATSTG {
    char16_t* pwcsName = nullptr;  ///< The caller's to free with CoTaskMemFree; null where no name was asked for.
    uint32_t type = 0;             ///< STGTY_STREAM.
    uint64_t cbSize = 0;           ///< Bytes.
    FILETIME mtime, ctime, atime;
    uint32_t grfMode = 0;
    uint32_t grfLocksSupported = 0;
    GUID clsid;
    uint32_t grfStateBits = 0;
    uint32_t reserved = 0;
};
inline constexpr uint32_t STGTY_STREAM = 2;
inline constexpr uint32_t STATFLAG_DEFAULT = 0, STATFLAG_NONAME = 1;

class QV_API IStream : public ISequentialStream {
public:
    enum : uint32_t { STREAM_SEEK_SET = 0, STREAM_SEEK_CUR = 1, STREAM_SEEK_END = 2 };

    virtual HRESULT Seek(int64_t move, uint32_t origin, uint64_t* newPosition) = 0;
    virtual HRESULT SetSize(uint64_t size) = 0;
    virtual HRESULT CopyTo(IStream* target, uint64_t count, uint64_t* read, uint64_t* written) = 0;
    virtual HRESULT Commit(uint32_t flags) = 0;
    virtual HRESULT Revert() = 0;
    virtual HRESULT LockRegion(uint64_t offset, uint64_t count, uint32_t type) = 0;
    virtual HRESULT UnlockRegion(uint64_t offset, uint64_t count, uint32_t type) = 0;
    virtual HRESULT Stat(STATSTG* stat, uint32_t flag) = 0;
    virtual HRESULT Clone(IStream** stream) = 0;
};

/// Memory that passes from a component to its caller; null without memory.
QV_API void* CoTaskMemAlloc(size_t bytes);
QV_API void CoTaskMemFree(void* memory);

/// Holds a component: one reference, released at the end.
template <class T>
class TCOMPtr {
public:
    TCOMPtr() = default;
    /// Takes over the reference that the caller has, as that of a new object.
    explicit TCOMPtr(T* object) : m_object(object) {}
    TCOMPtr(const TCOMPtr& other) : m_object(other.m_object) {
        if (m_object != nullptr) m_object->AddRef();
    }
    TCOMPtr(TCOMPtr&& other) noexcept : m_object(std::exchange(other.m_object, nullptr)) {}
    TCOMPtr& operator=(TCOMPtr other) noexcept {
        std::swap(m_object, other.m_object);
        return *this;
    }
    ~TCOMPtr() {
        if (m_object != nullptr) m_object->Release();
    }

    T* get() const { return m_object; }
    T* operator->() const { return m_object; }
    T& operator*() const { return *m_object; }
    explicit operator bool() const { return m_object != nullptr; }

private:
    T* m_object = nullptr;
};

/// A stream over the file, which it shares; its positions are the file's. Null for a null file and without memory.
///
/// QueryInterface knows IID_IUnknown and IID_IStream by their first field's low 16 bits and their last eight bytes, and
/// adds no reference. Read and Write are always S_OK; the count tells how much it was, and may be null. Seek is
/// E_INVALIDARG for an origin above 2. SetSize is E_FAIL where the file does not take the size. Stat gives type, size
/// and time of change, and the name in 1024 bytes of CoTaskMemAlloc unless told otherwise. All others are E_NOTIMPL.
/// Threads: none of it is thread-safe, the reference count included.
QV_API TCOMPtr<IStream> CreateFileStream(TSharedPtr<IFile> file);

}  // namespace qv
