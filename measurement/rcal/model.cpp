// CRCalFile: its life, its tags, and what is stored and handed out without a calculation.
#include <algorithm>
#include <cmath>

#include "measurement/rcal/document.h"
#include "qv/curve_fit.h"

namespace qv {

namespace {

constexpr double equalWithin = 1e-8;

/// Number of coefficients that a caller's buffer for that order takes.
uint32_t coefficientCount(int32_t order) { return static_cast<uint32_t>(CRCalFile::GetNumCoeffsForOrder(order)); }

/// At most as many values as a buffer for that order takes: a file may hold more.
void copyOut(const TArray<double>& from, int32_t order, double* to) {
    if (to != nullptr) std::copy_n(from.begin(), std::min(from.size(), coefficientCount(order)), to);
}

bool setOverride(POLY_OVERRIDE& polynomial, int32_t order, const double* values, bool valid) {
    const uint32_t count = values == nullptr ? 0 : coefficientCount(order);
    if (!polynomial.values.SetSize(count)) return false;
    std::copy_n(values, count, polynomial.values.data());
    polynomial.order = order;
    polynomial.valid = valid;
    return true;
}

bool equalCoefficients(const TArray<double>& known, int32_t knownOrder, int32_t order, const double* values) {
    if (order != knownOrder || values == nullptr) return false;
    const uint32_t count = std::min(known.size(), coefficientCount(order));
    for (uint32_t i = 0; i < count; ++i) {
        if (!(std::fabs(known.data()[i] - values[i]) <= equalWithin)) return false;
    }
    return true;
}

}  // namespace

CRCalFile::CRCalFile() : m_document(std::make_unique<Document>()) {}
CRCalFile::CRCalFile(const CRCalFile& other) : m_document(std::make_unique<Document>(*other.m_document)) {}
CRCalFile& CRCalFile::operator=(const CRCalFile& other) {
    if (this != &other) m_document = std::make_unique<Document>(*other.m_document);
    return *this;
}
CRCalFile::~CRCalFile() = default;

void CRCalFile::Destroy() { *m_document = Document(); }
void CRCalFile::DefaultCal() { *m_document = Document(); }

CAL_PAGE* CRCalFile::page(int32_t index) const {
    const bool exists = index >= 0 && static_cast<uint32_t>(index) < m_document->pages.size();
    return exists ? m_document->pages.data() + index : nullptr;
}

CAL_POINT* CRCalFile::point(int32_t pageIndex, int32_t index) const {
    CAL_PAGE* owner = page(pageIndex);
    const bool exists = owner != nullptr && index >= 0 && static_cast<uint32_t>(index) < owner->points.size();
    return exists ? owner->points.data() + index : nullptr;
}

RESPONCE* CRCalFile::response(int32_t index) const {
    const bool exists = index >= 0 && static_cast<uint32_t>(index) < m_document->additionalResponses.size();
    return exists ? m_document->additionalResponses.data() + index : nullptr;
}

CTagArray* CRCalFile::tags(int32_t pageIndex) const {
    if (pageIndex == -1) return &m_document->tags;
    CAL_PAGE* owner = page(pageIndex);
    return owner == nullptr ? nullptr : &owner->tags;
}

const CAL_PAGE* CRCalFile::GetPage(int32_t index) const { return page(index); }
int32_t CRCalFile::getRevision() const { return m_document->revision; }

const CTagArray& CRCalFile::GetTags(int32_t pageIndex) const {
    static const CTagArray none;
    const CTagArray* list = tags(pageIndex);
    return list == nullptr ? none : *list;
}
const char16_t* CRCalFile::GetTag(const char16_t* name, int32_t pageIndex) const {
    return GetTags(pageIndex).GetTagValue(name);
}
bool CRCalFile::SetTag(const char16_t* name, const char16_t* value, int32_t pageIndex) {
    CTagArray* list = tags(pageIndex);
    if (list == nullptr || name == nullptr) return false;
    list->SetTagValue(name, value);
    return true;
}
bool CRCalFile::RemoveTag(const char16_t* name, int32_t pageIndex) {
    CTagArray* list = tags(pageIndex);
    return list != nullptr && list->RemoveTag(name);
}
bool CRCalFile::ClearTags(int32_t pageIndex) {
    CTagArray* list = tags(pageIndex);
    if (list == nullptr) return false;
    list->Empty();
    return true;
}

// Polynomials --------------------------------------------------------------------------------------------------------

int CRCalFile::GetNumCoeffsForOrder(int order) {
    if (order > 0) return order < 0x7FFFFFFF ? order + 1 : 0;
    return order == -1 || order == -2 ? 2 : 0;
}

// The twelve accessors of each of a page's two polynomials differ in the members they use.
#define QV_DEFINE_POLYNOMIAL(X, polyOrderMember, coeffsMember, overrideMember)                                       \
    bool CRCalFile::GetCalc##X##PolyOrder(int32_t pageIndex, int32_t& order) const {                                 \
        const CAL_PAGE* p = page(pageIndex);                                                                         \
        if (p != nullptr) order = p->polyOrderMember;                                                                \
        return p != nullptr;                                                                                         \
    }                                                                                                                \
    bool CRCalFile::GetCalc##X##Coefficients(int32_t pageIndex, double* values) const {                              \
        const CAL_PAGE* p = page(pageIndex);                                                                         \
        if (p != nullptr) copyOut(p->coeffsMember, p->polyOrderMember, values);                                      \
        return p != nullptr;                                                                                         \
    }                                                                                                                \
    bool CRCalFile::GetCalc##X##Coefficients(int32_t pageIndex, TArray<double>& values) const {                      \
        const CAL_PAGE* p = page(pageIndex);                                                                         \
        if (p != nullptr) values = p->coeffsMember;                                                                  \
        return p != nullptr;                                                                                         \
    }                                                                                                                \
    bool CRCalFile::GetUsed##X##PolyOrder(int32_t pageIndex, int32_t& order) const {                                 \
        const CAL_PAGE* p = page(pageIndex);                                                                         \
        if (p != nullptr) order = p->overrideMember.order;                                                           \
        return p != nullptr;                                                                                         \
    }                                                                                                                \
    bool CRCalFile::GetUsed##X##Coefficients(int32_t pageIndex, double* values, bool* valid) const {                 \
        const CAL_PAGE* p = page(pageIndex);                                                                         \
        if (p == nullptr) return false;                                                                              \
        copyOut(p->overrideMember.values, p->overrideMember.order, values);                                          \
        if (valid != nullptr) *valid = p->overrideMember.valid;                                                      \
        return true;                                                                                                 \
    }                                                                                                                \
    bool CRCalFile::GetUsed##X##Coefficients(int32_t pageIndex, TArray<double>& values, bool* valid) const {         \
        const CAL_PAGE* p = page(pageIndex);                                                                         \
        if (p == nullptr) return false;                                                                              \
        values = p->overrideMember.values;                                                                           \
        if (valid != nullptr) *valid = p->overrideMember.valid;                                                      \
        return true;                                                                                                 \
    }                                                                                                                \
    bool CRCalFile::GetUsed##X##Coefficients(int32_t pageIndex, int32_t& order, double* values, bool* valid) const { \
        return GetUsed##X##PolyOrder(pageIndex, order) && GetUsed##X##Coefficients(pageIndex, values, valid);        \
    }                                                                                                                \
    bool CRCalFile::GetUsed##X##Coefficients(int32_t pageIndex, int32_t& order, TArray<double>& values, bool* valid) \
        const {                                                                                                      \
        return GetUsed##X##PolyOrder(pageIndex, order) && GetUsed##X##Coefficients(pageIndex, values, valid);        \
    }                                                                                                                \
    bool CRCalFile::Get##X##PolyOrder(int32_t pageIndex, int32_t& order) const {                                     \
        const CAL_PAGE* p = page(pageIndex);                                                                         \
        return p != nullptr && p->overrideMember.valid ? GetUsed##X##PolyOrder(pageIndex, order)                     \
                                                       : GetCalc##X##PolyOrder(pageIndex, order);                    \
    }                                                                                                                \
    bool CRCalFile::Get##X##Coefficients(int32_t pageIndex, double* values) const {                                  \
        const CAL_PAGE* p = page(pageIndex);                                                                         \
        return p != nullptr && p->overrideMember.valid ? GetUsed##X##Coefficients(pageIndex, values)                 \
                                                       : GetCalc##X##Coefficients(pageIndex, values);                \
    }                                                                                                                \
    bool CRCalFile::Get##X##Coefficients(int32_t pageIndex, TArray<double>& values) const {                          \
        const CAL_PAGE* p = page(pageIndex);                                                                         \
        return p != nullptr && p->overrideMember.valid ? GetUsed##X##Coefficients(pageIndex, values)                 \
                                                       : GetCalc##X##Coefficients(pageIndex, values);                \
    }                                                                                                                \
    bool CRCalFile::SetUsed##X##Coefficients(int32_t pageIndex, int32_t order, const double* values, bool valid) {   \
        CAL_PAGE* p = page(pageIndex);                                                                               \
        return p != nullptr && setOverride(p->overrideMember, order, values, valid);                                 \
    }                                                                                                                \
    bool CRCalFile::Equal##X##Coefficients(int32_t pageIndex, int32_t order, const double* values) const {           \
        const CAL_PAGE* p = page(pageIndex);                                                                         \
        return p != nullptr && equalCoefficients(p->coeffsMember, p->polyOrderMember, order, values);                \
    }

QV_DEFINE_POLYNOMIAL(, polyOrder, coeffs, coeffsOverride)
QV_DEFINE_POLYNOMIAL(Temp, tempPolyOrder, tempCoeffs, tempCoeffsOverride)
#undef QV_DEFINE_POLYNOMIAL

bool CRCalFile::GetCoeffsOverridden(int32_t pageIndex) const {
    const CAL_PAGE* p = page(pageIndex);
    return p != nullptr && p->coeffsOverride.valid;
}
bool CRCalFile::GetTempCoeffsOverridden(int32_t pageIndex) const {
    const CAL_PAGE* p = page(pageIndex);
    return p != nullptr && p->tempCoeffsOverride.valid;
}

// The band and stored values -----------------------------------------------------------------------------------------

void CRCalFile::GetBandpass(double& low, double& high) const {
    m_document->bandpassOverrideValid ? GetUsedBandpass(low, high) : GetCalcBandpass(low, high);
}
void CRCalFile::GetCalcBandpass(double& low, double& high) const {
    low = m_document->bandpassLow;
    high = m_document->bandpassHigh;
}
void CRCalFile::GetUsedBandpass(double& low, double& high, bool* valid) const {
    low = m_document->bandpassOverrideLow;
    high = m_document->bandpassOverrideHigh;
    if (valid != nullptr) *valid = m_document->bandpassOverrideValid;
}
void CRCalFile::SetUsedBandpass(double low, double high, bool valid) {
    m_document->bandpassOverrideLow = low;
    m_document->bandpassOverrideHigh = high;
    m_document->bandpassOverrideValid = valid;
}
bool CRCalFile::GetBandpassOverridden() const { return m_document->bandpassOverrideValid; }
bool CRCalFile::EqualBandpass(double low, double high) const {
    return std::fabs(low - m_document->bandpassLow) < equalWithin &&
           std::fabs(high - m_document->bandpassHigh) < equalWithin;
}

void CRCalFile::GetRange(double& value, bool& valid) const {
    value = m_document->range;
    valid = m_document->rangeValid;
}
void CRCalFile::SetRange(double value, bool valid) {
    m_document->range = value;
    m_document->rangeValid = valid;
}
void CRCalFile::GetFOV(double& horz, double& vert, bool& valid) const {
    horz = m_document->fovHorz;
    vert = m_document->fovVert;
    valid = m_document->fovValid;
}
void CRCalFile::SetFOV(double horz, double vert, bool valid) {
    m_document->fovHorz = horz;
    m_document->fovVert = vert;
    m_document->fovValid = valid;
}

bool CRCalFile::GetTPFact(int32_t pageIndex, double& value, bool& valid) const {
    const CAL_PAGE* p = page(pageIndex);
    if (p == nullptr) return false;
    value = p->tpfact;
    valid = p->tpfactValid;
    return true;
}
bool CRCalFile::SetTPFact(int32_t pageIndex, double value, bool valid) {
    CAL_PAGE* p = page(pageIndex);
    if (p == nullptr) return false;
    p->tpfact = value;
    p->tpfactValid = valid;
    return true;
}

BACKGROUND_TYPE CRCalFile::GetBackgroundType(int32_t pageIndex) const {
    const CAL_PAGE* p = page(pageIndex);
    return p == nullptr ? BACKGROUND_TYPE::notSet : p->backgroundType;
}
bool CRCalFile::SetBackgroundType(int32_t pageIndex, BACKGROUND_TYPE type) {
    CAL_PAGE* p = page(pageIndex);
    if (p != nullptr) p->backgroundType = type;
    return p != nullptr;
}
double CRCalFile::GetBackgroundValue(int32_t pageIndex) const {
    const CAL_PAGE* p = page(pageIndex);
    return p == nullptr ? 0.0 : p->backgroundValue;
}
bool CRCalFile::SetBackgroundValue(int32_t pageIndex, double value) {
    CAL_PAGE* p = page(pageIndex);
    if (p != nullptr) p->backgroundValue = value;
    return p != nullptr;
}
bool CRCalFile::GetBackgroundValueEx(int32_t pageIndex, double& value) const {
    const CAL_PAGE* p = page(pageIndex);
    if (p == nullptr) return false;
    value = p->backgroundType == BACKGROUND_TYPE::value ? p->backgroundValue : 0.0;
    return true;
}

double CRCalFile::GetBackgroundValueEx(int32_t pageIndex) const {
    double value = 0.0;
    GetBackgroundValueEx(pageIndex, value);
    return value;
}

bool CRCalFile::getAutoLookupUpdate() const { return m_document->autoLookupUpdate; }
void CRCalFile::setAutoLookupUpdate(bool automatic) { m_document->autoLookupUpdate = automatic; }

}  // namespace qv
