#include "qv/typed_data.h"

#include <new>

#include "numerics/kernels/element.h"
#include "qv/memory.h"

namespace qv {

namespace {

constexpr double twoTo63 = 9223372036854775808.0;

/// The member as a pointer that the compiler may not take for non-null: calls on a null buffer are answered, not
/// undefined.
template <class T>
T* maybeNull(T* self) {
    T* volatile seen = self;
    return seen;
}

uint64_t toUInt64(double value) {
    if (!(value >= twoTo63)) return static_cast<uint64_t>(kernels::hardwareTruncate<int64_t>(value));
    return static_cast<uint64_t>(kernels::hardwareTruncate<int64_t>(value - twoTo63)) | uint64_t{1} << 63;
}

double readRGB(const void* elements, size_t index) {
    const auto pixel = kernels::load<SRGB>(elements, index);
    return (pixel.r + pixel.g + pixel.b) / 3.0;
}

double readElement(const void* elements, EDataType type, size_t index) {
    using kernels::load;
    switch (type) {
        case EDataType::int8: return load<int8_t>(elements, index);
        case EDataType::uint8: return load<uint8_t>(elements, index);
        case EDataType::int16: return load<int16_t>(elements, index);
        case EDataType::uint16: return load<uint16_t>(elements, index);
        case EDataType::int32: return load<int32_t>(elements, index);
        case EDataType::uint32: return load<uint32_t>(elements, index);
        case EDataType::int64: return static_cast<double>(load<int64_t>(elements, index));
        case EDataType::uint64: return kernels::fromUInt64(load<uint64_t>(elements, index));
        case EDataType::flt32: return static_cast<double>(load<float>(elements, index));
        case EDataType::flt64: return load<double>(elements, index);
        case EDataType::rgb24: return readRGB(elements, index);
        default: return 0.0;
    }
}

void writeElement(void* elements, EDataType type, size_t index, double value) {
    using kernels::convert;
    using kernels::store;
    switch (type) {
        case EDataType::int8: return store(elements, index, convert<int8_t>(value));
        case EDataType::uint8: return store(elements, index, convert<uint8_t>(value));
        case EDataType::int16: return store(elements, index, convert<int16_t>(value));
        case EDataType::uint16: return store(elements, index, convert<uint16_t>(value));
        case EDataType::int32: return store(elements, index, convert<int32_t>(value));
        case EDataType::uint32: return store(elements, index, convert<uint32_t>(value));
        case EDataType::int64: return store(elements, index, convert<int64_t>(value));
        case EDataType::uint64: return store(elements, index, toUInt64(value));
        case EDataType::flt32: return store(elements, index, convert<float>(value));
        case EDataType::flt64: return store(elements, index, value);
        default: return;
    }
}

}  // namespace

STypedData::VALUE::operator double() const {
    if (m_data->pointer == nullptr) return 0.0;
    return readElement(m_data->pointer, m_data->type, static_cast<size_t>(m_index));
}

STypedData::VALUE& STypedData::VALUE::operator=(double value) {
    if (m_data->pointer != nullptr) writeElement(m_data->pointer, m_data->type, static_cast<size_t>(m_index), value);
    return *this;
}

ITypedBuffer::~ITypedBuffer() = default;

double ITypedBuffer::getAt(uint32_t index) const {
    const ITypedBuffer* self = maybeNull(this);
    if (self == nullptr) return 0.0;
    const void* elements = self->data();
    return elements == nullptr ? 0.0 : readElement(elements, self->type(), index);
}

void ITypedBuffer::setAt(uint32_t index, double value) {
    ITypedBuffer* self = maybeNull(this);
    if (self == nullptr) return;
    void* elements = self->data();
    if (elements != nullptr) writeElement(elements, self->type(), index, value);
}

CTypedBuffer::~CTypedBuffer() {
    if (m_data != nullptr) HeapFree(m_data);
}

bool CTypedBuffer::Alloc(EDataType type, uint32_t count) {
    if (static_cast<uint32_t>(type) > static_cast<uint32_t>(EDataType::rgb24)) return false;
    if (m_data != nullptr) HeapFree(m_data);
    m_data = nullptr;
    m_type = EDataType::none;
    m_size = 0;
    const uint64_t bytes = uint64_t{DataTypeSize(type)} * count;
    if (bytes > 0xFFFFFFFFu) return false;
    m_data = HeapAlloc(static_cast<size_t>(bytes));
    if (m_data == nullptr) return false;
    m_type = type;
    m_size = count;
    return true;
}

TSharedPtr<ITypedBuffer> AllocTypedBuffer(EDataType type, uint32_t count) {
    auto* buffer = new (std::nothrow) CTypedBuffer();
    if (buffer == nullptr) return {};
    if (!buffer->Alloc(type, count)) {
        delete buffer;
        return {};
    }
    return TSharedPtr<ITypedBuffer>(buffer);
}

}  // namespace qv
