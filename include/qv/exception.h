// The exceptions of read access with a bad index or position. Everything else in the library reports by its result.
#pragma once

#include "qv/api.h"
#include "qv/string.h"

namespace qv {

/// A message and, optionally, the exception that led to this one. Thrown by value; copying shares the message.
class QV_API CException {
public:
    /// @param message  What happened, in English; there is no code number beside it.
    /// @param inner    The exception that led here, or null. Held as a plain pointer: neither copied nor owned.
    explicit CException(CString message, const CException* inner = nullptr);
    CException(const CException& other);
    CException(CException&& other) noexcept;
    CException& operator=(const CException& other);
    virtual ~CException();

    /// Another reference to the message.
    CString message() const;
    /// The message in UTF-8; empty when there is none.
    CStringMB what() const;
    const CException* innerException() const;

private:
    CString m_message;
    const CException* m_inner;
};

#define QV_DECLARE_EXCEPTION(Name, Base)                                   \
    class QV_API Name : public Base {                                      \
    public:                                                                \
        explicit Name(CString message, const CException* inner = nullptr); \
        Name(const Name& other);                                           \
        Name(Name&& other) noexcept;                                       \
        Name& operator=(const Name& other);                                \
        ~Name() override;                                                  \
    }

/// A fault in the calling program.
QV_DECLARE_EXCEPTION(CLogicErrorException, CException);
/// A position or index outside its range.
QV_DECLARE_EXCEPTION(COutOfRangeException, CLogicErrorException);
/// An argument that no call may pass.
QV_DECLARE_EXCEPTION(CInvalidArgumentException, CLogicErrorException);
/// A state that only shows at run time.
QV_DECLARE_EXCEPTION(CRuntimeErrorException, CException);

#undef QV_DECLARE_EXCEPTION

}  // namespace qv
