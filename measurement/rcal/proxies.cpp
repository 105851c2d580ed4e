// The accessor objects of a calibration. A setter writes, then hands the change to propagate().
#include <algorithm>
#include <utility>

#include "measurement/rcal/document.h"
#include "measurement/rcal/propagation.h"
#include "qv/curve_fit.h"

namespace qv {

namespace {

double at(const TArray<double>& values, uint32_t index) { return index < values.size() ? values.data()[index] : 0.0; }

/// The member of a record, zero when there is no record.
template <class Record, class Value>
Value read(const Record* record, Value Record::*member) {
    return record == nullptr ? Value{} : record->*member;
}

/// Writes the member; false when there is no record.
template <class Record, class Value>
bool write(Record* record, Value Record::*member, std::type_identity_t<Value> value) {
    if (record == nullptr) return false;
    record->*member = std::move(value);
    return true;
}

}  // namespace

// Curves -------------------------------------------------------------------------------------------------------------

uint32_t CRCalFile::CCurve::getCount() const {
    return m_x == nullptr || m_y == nullptr ? 0 : std::min(m_x->size(), m_y->size());
}
double CRCalFile::CCurve::getX(uint32_t index) const { return index < getCount() ? at(*m_x, index) : 0.0; }
double CRCalFile::CCurve::getY(uint32_t index) const { return index < getCount() ? at(*m_y, index) : 0.0; }

uint32_t CRCalFile::CAxis::getCount() const { return m_file->m_document->response.x.size(); }
double CRCalFile::CAxis::operator[](uint32_t index) const { return at(m_file->m_document->response.x, index); }

uint32_t CRCalFile::CCoefficients::getCount() const {
    TArray<double> values;
    m_reverse ? m_file->GetTempCoefficients(m_page, values) : m_file->GetCoefficients(m_page, values);
    return values.size();
}
double CRCalFile::CCoefficients::operator[](uint32_t index) const {
    TArray<double> values;
    m_reverse ? m_file->GetTempCoefficients(m_page, values) : m_file->GetCoefficients(m_page, values);
    return at(values, index);
}
double CRCalFile::CCoefficients::getR2() const {
    return read(std::as_const(*m_file).GetPage(m_page), m_reverse ? &CAL_PAGE::tempR2 : &CAL_PAGE::r2);
}

// Lookup and range ---------------------------------------------------------------------------------------------------

#define QV_DEFINE_LOOKUP(X, member)                                                                               \
    double CRCalFile::CLookup::get##X() const { return read(m_file->page(m_page), &CAL_PAGE::member); }           \
    void CRCalFile::CLookup::set##X(double value) {                                                               \
        if (write(m_file->page(m_page), &CAL_PAGE::member, value)) m_file->propagate(RCalChange::lookup, m_page); \
    }
QV_DEFINE_LOOKUP(Start, lookupStart)
QV_DEFINE_LOOKUP(End, lookupEnd)
QV_DEFINE_LOOKUP(Delta, lookupDelta)
QV_DEFINE_LOOKUP(Emissivity, lookupEmissivity)
#undef QV_DEFINE_LOOKUP

CRCalFile::CCurve CRCalFile::CLookup::getCurve() const {
    const CAL_PAGE* page = m_file->page(m_page);
    return page == nullptr ? CCurve(nullptr, nullptr) : CCurve(&page->lookupRadiance, &page->lookupTemperature);
}

bool CRCalFile::CRange::getAuto() const { return read(m_file->page(m_page), &CAL_PAGE::autoRange); }
void CRCalFile::CRange::setAuto(bool automatic) {
    if (write(m_file->page(m_page), &CAL_PAGE::autoRange, automatic) && automatic) {
        m_file->propagate(RCalChange::autoRangeOn, m_page);
    }
}

#define QV_DEFINE_RANGE(X, member)                                                                     \
    double CRCalFile::CRange::get##X() const { return read(m_file->page(m_page), &CAL_PAGE::member); } \
    void CRCalFile::CRange::set##X(double value) { write(m_file->page(m_page), &CAL_PAGE::member, value); }
QV_DEFINE_RANGE(MinCounts, minCounts)
QV_DEFINE_RANGE(MaxCounts, maxCounts)
QV_DEFINE_RANGE(MinRadiance, minRadiance)
QV_DEFINE_RANGE(MaxRadiance, maxRadiance)
QV_DEFINE_RANGE(MinTemperature, minTemperature)
QV_DEFINE_RANGE(MaxTemperature, maxTemperature)
#undef QV_DEFINE_RANGE

// Points -------------------------------------------------------------------------------------------------------------

bool CRCalFile::CCalPoint::getExists() const { return m_file->point(m_page, m_point) != nullptr; }

#define QV_DEFINE_POINT(X, Type, member, changeKind)                                                               \
    Type CRCalFile::CCalPoint::get##X() const { return read(m_file->point(m_page, m_point), &CAL_POINT::member); } \
    void CRCalFile::CCalPoint::set##X(Type value) {                                                                \
        if (write(m_file->point(m_page, m_point), &CAL_POINT::member, value)) {                                    \
            m_file->propagate(RCalChange::changeKind, m_page, m_point);                                            \
        }                                                                                                          \
    }
QV_DEFINE_POINT(Temperature, double, temperature, pointTemperature)
QV_DEFINE_POINT(Emissivity, double, emissivity, pointValue)
QV_DEFINE_POINT(Measurement, double, measurement, pointValue)
QV_DEFINE_POINT(Enabled, bool, enabled, pointEnabled)
QV_DEFINE_POINT(ReflectedRadiance, double, reflectedRadiance, pointValue)
QV_DEFINE_POINT(ReflectedTemperature, double, reflectedTemperature, pointValue)
QV_DEFINE_POINT(ReflectedEmissivity, double, reflectedEmissivity, pointValue)
QV_DEFINE_POINT(ReflectedRadianceType, EReflectedRadianceType, reflectedRadianceType, pointValue)
#undef QV_DEFINE_POINT

double CRCalFile::CCalPoint::getRadiance() const { return read(m_file->point(m_page, m_point), &CAL_POINT::radiance); }

int32_t CRCalFile::CCalPoints::Add(const CAL_POINT& point) {
    CAL_PAGE* page = m_file->page(m_page);
    if (page == nullptr || !page->points.Add(point)) return -1;
    return m_file->propagate(RCalChange::pointAdded, m_page, static_cast<int32_t>(page->points.size()) - 1);
}

bool CRCalFile::CCalPoints::Remove(int32_t index) {
    if (m_file->point(m_page, index) == nullptr) return false;
    m_file->page(m_page)->points.Remove(static_cast<uint32_t>(index));
    m_file->propagate(RCalChange::pointRemoved, m_page);
    return true;
}

int32_t CRCalFile::CCalPoints::getCount() const {
    const CAL_PAGE* page = m_file->page(m_page);
    return page == nullptr ? 0 : static_cast<int32_t>(page->points.size());
}

int32_t CRCalFile::CCalPoints::getNumEnabled() const {
    const CAL_PAGE* page = m_file->page(m_page);
    if (page == nullptr) return 0;
    return static_cast<int32_t>(
        std::count_if(page->points.begin(), page->points.end(), [](const CAL_POINT& point) { return point.enabled; }));
}

// Pages --------------------------------------------------------------------------------------------------------------

bool CRCalFile::CCalPage::getExists() const { return m_file->page(m_page) != nullptr; }

int32_t CRCalFile::CCalPage::getPolyOrder() const {
    int32_t order = 0;
    m_file->GetPolyOrder(m_page, order);
    return order;
}
void CRCalFile::CCalPage::setPolyOrder(int32_t order) {
    CAL_PAGE* page = m_file->page(m_page);
    if (page == nullptr) return;
    const int32_t clamped = std::max(std::min(order, static_cast<int32_t>(page->points.size()) - 1), 1);
    if (clamped == page->polyOrder) return;
    page->polyOrder = clamped;
    m_file->propagate(RCalChange::polyOrder, m_page);
}
int32_t CRCalFile::CCalPage::getTempPolyOrder() const {
    int32_t order = 0;
    m_file->GetTempPolyOrder(m_page, order);
    return order;
}
void CRCalFile::CCalPage::setTempPolyOrder(int32_t order) {
    if (write(m_file->page(m_page), &CAL_PAGE::tempPolyOrder, order))
        m_file->propagate(RCalChange::tempPolyOrder, m_page);
}

double CRCalFile::CCalPage::getRadiance(double counts) const {
    TArray<double> coefficients;
    m_file->GetCoefficients(m_page, coefficients);
    return PolyValue(counts, coefficients);
}
double CRCalFile::CCalPage::getTemperature(double radiance) const {
    TArray<double> coefficients;
    m_file->GetTempCoefficients(m_page, coefficients);
    return PolyValue(radiance, coefficients);
}
double CRCalFile::CCalPage::getMeasurement(double radiance) const {
    TArray<double> coefficients;
    m_file->GetReverseCoefficients(m_page, coefficients);
    return PolyValue(radiance, coefficients);
}
bool CRCalFile::CCalPage::GetTemperatureRange(double& low, double& high) const {
    const CAL_PAGE* page = m_file->page(m_page);
    if (page == nullptr) return false;
    low = page->minTemperature;
    high = page->maxTemperature;
    return true;
}

int32_t CRCalFile::CCalPages::Add(const CAL_PAGE& page) {
    TArray<CAL_PAGE>& pages = m_file->m_document->pages;
    if (!pages.Add(page)) return -1;
    const auto index = static_cast<int32_t>(pages.size()) - 1;
    m_file->propagate(RCalChange::pageAdded, index);
    return index;
}
bool CRCalFile::CCalPages::Remove(int32_t index) {
    return m_file->page(index) != nullptr && m_file->m_document->pages.Remove(static_cast<uint32_t>(index));
}
int32_t CRCalFile::CCalPages::getCount() const { return static_cast<int32_t>(m_file->m_document->pages.size()); }

// The spectral side --------------------------------------------------------------------------------------------------

#define QV_DEFINE_TOPHAT(X, member)                                                  \
    double CRCalFile::CTophat::get##X() const { return m_file->m_document->member; } \
    void CRCalFile::CTophat::set##X(double microns) {                                \
        m_file->m_document->member = microns;                                        \
        m_file->propagate(RCalChange::tophat);                                       \
    }
QV_DEFINE_TOPHAT(Start, tophatStart)
QV_DEFINE_TOPHAT(End, tophatEnd)
QV_DEFINE_TOPHAT(Delta, tophatDelta)
#undef QV_DEFINE_TOPHAT

ESpectralResponseType CRCalFile::CSpectralResponse::getType() const {
    return m_file->m_document->fileInForce() ? ESpectralResponseType::file : ESpectralResponseType::tophat;
}
void CRCalFile::CSpectralResponse::setType(ESpectralResponseType type) {
    Document& d = *m_file->m_document;
    const bool toFile = type == ESpectralResponseType::file;
    d.spectralType = toFile ? StoredResponseType::file : StoredResponseType::tophat;
    d.spectralEnabled = toFile && !d.spectralFile.IsEmpty();
    m_file->propagate(toFile ? RCalChange::typeToFile : RCalChange::typeToTophat);
}
const CString& CRCalFile::CSpectralResponse::getFile() const { return m_file->m_document->spectralFile; }
void CRCalFile::CSpectralResponse::setFile(const CString& path) {
    Document& d = *m_file->m_document;
    d.spectralFile = path;
    d.spectralStatus = EResponseStatus::notSet;
    d.spectralEnabled = d.spectralType == StoredResponseType::file && !path.IsEmpty();
    m_file->propagate(RCalChange::spectralFile);
}
EResponseStatus CRCalFile::CSpectralResponse::getStatus() const { return m_file->m_document->spectralStatus; }
double CRCalFile::CSpectralResponse::getBandpassLow() const {
    double low = 0.0;
    double high = 0.0;
    m_file->GetBandpass(low, high);
    return low;
}
double CRCalFile::CSpectralResponse::getBandpassHigh() const {
    double low = 0.0;
    double high = 0.0;
    m_file->GetBandpass(low, high);
    return high;
}
CRCalFile::CCurve CRCalFile::CSpectralResponse::getCurve() const {
    return {&m_file->m_document->response.x, &m_file->m_document->response.y};
}
CRCalFile::CCurve CRCalFile::CSpectralResponse::getRawCurve() const {
    return {&m_file->m_document->response.rawX, &m_file->m_document->response.rawY};
}

bool CRCalFile::CAdditionalResponse::getEnabled() const { return read(m_file->response(m_index), &RESPONCE::enabled); }
void CRCalFile::CAdditionalResponse::setEnabled(bool enabled) {
    if (write(m_file->response(m_index), &RESPONCE::enabled, enabled)) {
        m_file->propagate(RCalChange::additionalResponse, -1, m_index);
    }
}
CString CRCalFile::CAdditionalResponse::getFile() const { return read(m_file->response(m_index), &RESPONCE::file); }
void CRCalFile::CAdditionalResponse::setFile(const CString& path) {
    if (write(m_file->response(m_index), &RESPONCE::file, path)) {
        m_file->propagate(RCalChange::additionalResponse, -1, m_index);
    }
}
EResponseStatus CRCalFile::CAdditionalResponse::getStatus() const {
    const RESPONCE* added = m_file->response(m_index);
    return added == nullptr ? EResponseStatus::notSet : added->status;
}
CRCalFile::CCurve CRCalFile::CAdditionalResponse::getCurve() const {
    const RESPONCE* added = m_file->response(m_index);
    return added == nullptr ? CCurve(nullptr, nullptr) : CCurve(&added->curve.x, &added->curve.y);
}

int32_t CRCalFile::CAdditionalResponses::Add(const CString& path) {
    RESPONCE added;
    added.file = path;
    TArray<RESPONCE>& responses = m_file->m_document->additionalResponses;
    if (!responses.Add(added)) return -1;
    const auto index = static_cast<int32_t>(responses.size()) - 1;
    m_file->propagate(RCalChange::additionalResponse, -1, index);
    return index;
}
/// The pages follow: a response that is gone counts no more.
bool CRCalFile::CAdditionalResponses::Remove(int32_t index) {
    if (m_file->response(index) == nullptr) return false;
    m_file->m_document->additionalResponses.Remove(static_cast<uint32_t>(index));
    m_file->UpdateCalPage(-1);
    return true;
}
int32_t CRCalFile::CAdditionalResponses::getCount() const {
    return static_cast<int32_t>(m_file->m_document->additionalResponses.size());
}

const CString& CRCalFile::CModtran::getFile() const { return m_file->m_document->modtranFile; }
void CRCalFile::CModtran::setFile(const CString& path) {
    m_file->m_document->modtranFile = path;
    m_file->propagate(RCalChange::modtranFile);
}
EResponseStatus CRCalFile::CModtran::getStatus() const { return m_file->m_document->modtranStatus; }

bool CRCalFile::CModtranCurve::getEnabled() const {
    const Document& d = *m_file->m_document;
    return m_index == 0 ? d.totTransEnabled : m_index == 1 && d.pathThrmlEnabled;
}
void CRCalFile::CModtranCurve::setEnabled(bool enabled) {
    if (m_index != 0 && m_index != 1) return;
    Document& d = *m_file->m_document;
    (m_index == 0 ? d.totTransEnabled : d.pathThrmlEnabled) = enabled;
    m_file->propagate(RCalChange::modtranEnabled);
}
CRCalFile::CCurve CRCalFile::CModtranCurve::getCurve() const {
    if (m_index != 0 && m_index != 1) return {nullptr, nullptr};
    const Document& d = *m_file->m_document;
    const RCAL_CURVE& curve = m_index == 0 ? d.totalTransmission : d.pathThermal;
    return {&curve.x, &curve.y};
}
CRCalFile::CCurve CRCalFile::CModtranCurve::getRawCurve() const {
    if (m_index != 0 && m_index != 1) return {nullptr, nullptr};
    const Document& d = *m_file->m_document;
    const RCAL_CURVE& curve = m_index == 0 ? d.totalTransmission : d.pathThermal;
    return {&curve.rawX, &curve.rawY};
}

}  // namespace qv
