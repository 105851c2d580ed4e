// The files that measure what is written to them.
#include <string>

#include "platform/memory.h"
#include "qv/crc.h"

namespace qv {

char16_t* CCalcCRCFile::GetFilename(char16_t* buffer, int bufferChars) {
    if (bufferChars > 0) StrCpy(buffer, u"none", static_cast<size_t>(bufferChars));
    return buffer;
}

IFileSystem& CCalcCRCFile::GetFileSystem() { return fileSystem(); }

void CCalcCRCFile::notImplemented(const char* operation) const {
    platform::debugOutput((std::string(m_className) + "::" + operation + ": Not Implemented.\n").c_str());
}

uint32_t CCalcCRCFile::Read(void*, uint32_t) {
    notImplemented("Read");
    return 0;
}

int64_t CCalcCRCFile::Seek(int64_t, uint32_t) {
    notImplemented("Seek");
    return m_count;
}

bool CCalcCRCFile::SetSize(int64_t) {
    notImplemented("SetSize");
    return false;
}

uint32_t CCalcCRC16File::Write(const void* data, uint32_t count) {
    m_crc = CalcMultBlockCRC16(static_cast<const unsigned char*>(data), count, m_crc);
    m_count += count;
    return count;
}

void CCalcCRC16File::Reset() {
    m_crc = 0;
    m_count = 0;
}

uint32_t CCalcCRC32File::Write(const void* data, uint32_t count) {
    m_crc = CalcMultBlockCRC32(static_cast<const unsigned char*>(data), count, m_crc);
    m_count += count;
    return count;
}

void CCalcCRC32File::Reset() {
    m_crc = InitCRC32();
    m_count = 0;
}

}  // namespace qv
