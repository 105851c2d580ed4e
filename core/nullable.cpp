#include "qv/nullable.h"

#include "qv/exception.h"

namespace qv {

const nullptr_t null{};

namespace Private {
void throwNullableNotSet() { throw CRuntimeErrorException(CString(u"nullable value is not set.")); }
void throwNullableIsSet() {
    throw CRuntimeErrorException(CString(u"can't use & operator (set by pointer) because nullable value is set."));
}
}  // namespace Private

template class nullable<bool>;
template class nullable<char>;
template class nullable<unsigned char>;
template class nullable<int16_t>;
template class nullable<uint16_t>;
template class nullable<int32_t>;
template class nullable<uint32_t>;
template class nullable<int64_t>;
template class nullable<uint64_t>;
template class nullable<float>;
template class nullable<double>;

}  // namespace qv
