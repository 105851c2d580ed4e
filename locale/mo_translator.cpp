#include "core/text.h"
#include "locale/mo_catalogue.h"
#include "qv/diagnostic.h"
#include "qv/file.h"
#include "qv/file_system.h"
#include "qv/locale.h"

ITranslator::~ITranslator() = default;

struct CMoTranslator::Catalogue : qv::MoCatalogue {};

CMoTranslator::CMoTranslator() = default;
CMoTranslator::~CMoTranslator() = default;

bool CMoTranslator::Load(qv::IFile* file) {
    m_catalogue.reset();
    if (file == nullptr) return false;
    const int64_t size = file->GetRemaining();
    constexpr int64_t largest = 0x7FFFFFFF;
    if (size < 0 || size > largest) {
        qv::SetDiagnostic(u"", u"a message catalogue of less than 2 GiB", u"a larger file");
        return false;
    }
    std::string bytes(static_cast<size_t>(size), '\0');
    if (!file->ReadBytes(bytes.data(), static_cast<uint32_t>(size))) {
        qv::SetDiagnostic(u"", u"a whole message catalogue", u"a file that ends early");
        return false;
    }
    auto loaded = std::make_unique<Catalogue>();
    qv::MoCatalogue::Refusal refusal{};
    if (!loaded->load(bytes, refusal)) {
        qv::SetDiagnostic(u"", refusal.expected, refusal.found, refusal.byteOffset);
        return false;
    }
    m_catalogue = std::move(loaded);
    return true;
}

bool CMoTranslator::Load(qv::IFileSystem* fileSystem, const char16_t* path) {
    m_catalogue.reset();
    if (fileSystem == nullptr || path == nullptr) return false;
    // Existing, read, shared reading and writing.
    const qv::TSharedPtr<qv::IFile> file = fileSystem->CreateFileW(path, 0x2 | 0x10 | 0x100 | 0x200);
    if (!file) return false;
    if (Load(file.get())) return true;
    qv::SetDiagnosticFile(path);
    return false;
}

const char16_t* CMoTranslator::Translate(const char16_t* context, const char16_t* text) const {
    return m_catalogue == nullptr || text == nullptr ? nullptr : m_catalogue->find(context, text, 0);
}

const char16_t* CMoTranslator::TranslatePlural(const char16_t* context, const char16_t* singular, uint64_t n) const {
    if (m_catalogue == nullptr || singular == nullptr) return nullptr;
    return m_catalogue->find(context, singular, m_catalogue->formOf(n));
}

uint32_t CMoTranslator::GetMessageCount() const { return m_catalogue == nullptr ? 0 : m_catalogue->messages(); }
qv::CString CMoTranslator::GetHeader() const {
    return m_catalogue == nullptr ? qv::CString() : qv::CString(m_catalogue->header());
}
