// A file whose operations go wrong when they are told to.
#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>

#include "qv/file.h"

namespace qv::test {

/// Passes everything on to another file, except for what is to fail. Operations that can fail are Read, Write, Seek,
/// SetSize and Flush; they are counted from 1.
class FaultyFile : public IFile {
public:
    enum class Fault {
        fails,     ///< Does nothing and says so.
        shortens,  ///< Does half and says so.
        tears,     ///< Does half and says that it did nothing.
    };
    static constexpr Fault faults[] = {Fault::fails, Fault::shortens, Fault::tears};

    explicit FaultyFile(TSharedPtr<IFile> inner) : m_inner(inner) {}

    /// The n-th operation from now on goes wrong, or all from there on.
    void failAt(uint64_t n, Fault fault, bool andAfter = false) {
        m_first = m_operations + n;
        m_last = andAfter ? std::numeric_limits<uint64_t>::max() : m_first;
        m_fault = fault;
    }
    /// A full disk: what would make the file longer than that is not taken.
    void limitSize(int64_t bytes) { m_limit = bytes; }
    uint64_t operations() const { return m_operations; }
    bool hasFailed() const { return m_operations >= m_first; }

    char16_t* GetFilename(char16_t* buffer, int bufferChars) override {
        return m_inner->GetFilename(buffer, bufferChars);
    }
    IFileSystem& GetFileSystem() override { return m_inner->GetFileSystem(); }
    uint32_t Write(const void* data, uint32_t count) override {
        const int64_t room = std::max<int64_t>(m_limit - m_inner->GetPosition(), 0);
        const auto taken = static_cast<uint32_t>(std::min<int64_t>(count, room));
        return part(taken, [&](uint32_t n) { return m_inner->Write(data, n); });
    }
    uint32_t Read(void* data, uint32_t count) override {
        return part(count, [&](uint32_t n) { return m_inner->Read(data, n); });
    }
    int64_t GetSize() override { return m_inner->GetSize(); }
    int64_t GetPosition() override { return m_inner->GetPosition(); }
    int64_t Seek(int64_t offset, uint32_t origin) override { return strikes() ? -1 : m_inner->Seek(offset, origin); }
    bool SetSize(int64_t size) override {
        const bool struck = strikes();
        if (struck && m_fault == Fault::fails) return false;
        if (struck) size = m_inner->GetSize() + (size - m_inner->GetSize()) / 2;
        return size <= std::max(m_limit, m_inner->GetSize()) && m_inner->SetSize(size) && !struck;
    }
    void Flush() override {
        if (!strikes()) m_inner->Flush();
    }
    void Close() override {}

private:
    bool strikes() {
        ++m_operations;
        return m_operations >= m_first && m_operations <= m_last;
    }
    template <class Transfer>
    uint32_t part(uint32_t count, Transfer transfer) {
        if (!strikes()) return transfer(count);
        if (m_fault == Fault::fails) return 0;
        const uint32_t done = transfer(count / 2);
        return m_fault == Fault::shortens ? done : 0;
    }

    TSharedPtr<IFile> m_inner;
    uint64_t m_operations = 0;
    uint64_t m_first = std::numeric_limits<uint64_t>::max(), m_last = 0;
    Fault m_fault = Fault::fails;
    int64_t m_limit = std::numeric_limits<int64_t>::max();
};

}  // namespace qv::test
