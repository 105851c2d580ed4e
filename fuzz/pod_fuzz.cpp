// Bytes as a parameter table: what loads is read, changed in places that the bytes choose, and saved; what was saved
// loads with the same cells.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "qv/file.h"
#include "qv/file_system.h"
#include "qv/pod_file.h"

namespace {

/// A disk with one file, in memory.
class OneFile : public qv::CFileSystem {
public:
    explicit OneFile(std::string bytes) : m_bytes(std::move(bytes)) {}
    qv::TSharedPtr<qv::IFile> CreateFileW(const char16_t*, uint32_t flags) override {
        if ((flags & qv::CFile::accessWrite) != 0) return qv::TSharedPtr<qv::IFile>(new Writer(m_bytes));
        qv::TSharedPtr<qv::CMemFile> file = qv::CMemFile::Create();
        file->WriteBytes(m_bytes.data(), static_cast<uint32_t>(m_bytes.size()));
        file->SeekToBegin();
        return file;
    }

private:
    struct Writer : qv::CMemFile {
        explicit Writer(std::string& to) : bytes(to) {}
        ~Writer() override { bytes.assign(reinterpret_cast<const char*>(GetData()), size()); }
        std::string& bytes;
    };
    std::string m_bytes;
};

std::u16string cellsOf(qv::CPODFile& table) {
    std::u16string all;
    for (uint32_t row = 0; row < table.nDPs(); ++row) {
        for (uint32_t column = 0; column < table.nParams(); ++column) {
            const char16_t* text = table.GetValue(column, row);
            if (text != nullptr) all += text;
            all += text == nullptr ? u'-' : u'|';
        }
    }
    return all;
}

void change(qv::CPODFile& table, const uint8_t* data, size_t size) {
    for (size_t i = 0; i + 2 < size && i < 300; i += 3) {
        const uint32_t column = data[i + 1] % 8u, row = data[i + 2];
        switch (data[i] % 16) {
            case 0: table.AddRow(); break;
            case 1: table.RemoveRow(row); break;
            case 2: table.AddColumn(u"new", u"", u"m", u""); break;
            case 3: table.RemoveCol(column); break;
            default: table.PutValue(column, row, u"4 2"); break;
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 0x4000) return 0;  // the index of a row with thousands of columns is large, and many such rows take long
    OneFile disk(std::string(reinterpret_cast<const char*>(data), size));
    qv::CPODFile table;
    if (!table.Load(&disk, u"a", false) || uint64_t{table.nDPs()} * table.nParams() > 1'000'000) return 0;
    change(table, data, size);
    if (!table.Save(&disk, u"a", false, size % 2 == 0)) return 0;
    const std::u16string cells = cellsOf(table);
    if (!table.MergeWith(table, u"a", u"b", u"", u"", u"", true, true) && table.GetError().IsEmpty()) std::abort();
    table.Destroy();
    if (!table.Load(&disk, u"a", true) || cellsOf(table) != cells) std::abort();
    OneFile another("");
    qv::CPODFile other;
    if (!table.Save(&another, u"b", false, false) || !other.Load(&another, u"b", true) || cellsOf(other) != cells) {
        std::abort();
    }
    return 0;
}
