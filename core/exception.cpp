#include "qv/exception.h"

#include <utility>

#include "qv/array.h"

namespace qv {

CException::CException(CString message, const CException* inner) : m_message(std::move(message)), m_inner(inner) {}
CException::CException(const CException&) = default;
CException::CException(CException&& other) noexcept : m_message(std::move(other.m_message)), m_inner(other.m_inner) {}
CException& CException::operator=(const CException&) = default;
CException::~CException() = default;

CString CException::message() const { return m_message; }
CStringMB CException::what() const { return CStringMB(m_message.c_str()); }
const CException* CException::innerException() const { return m_inner; }

#define QV_DEFINE_EXCEPTION(Name, Base)                                                       \
    Name::Name(CString message, const CException* inner) : Base(std::move(message), inner) {} \
    Name::Name(const Name&) = default;                                                        \
    Name::Name(Name&&) noexcept = default;                                                    \
    Name& Name::operator=(const Name&) = default;                                             \
    Name::~Name() = default

QV_DEFINE_EXCEPTION(CLogicErrorException, CException);
QV_DEFINE_EXCEPTION(COutOfRangeException, CLogicErrorException);
QV_DEFINE_EXCEPTION(CInvalidArgumentException, CLogicErrorException);
QV_DEFINE_EXCEPTION(CRuntimeErrorException, CException);

#undef QV_DEFINE_EXCEPTION

namespace Private {
void throwIndexOutOfBounds() { throw CException(CString(u"Index out of bounds.")); }
}  // namespace Private

}  // namespace qv
