// Pages that move between calibrations.
#include "measurement/rcal/document.h"

namespace qv {

bool CRCalFile::Extract(CRCalFile& target, int32_t pageIndex) const {
    if (page(pageIndex) == nullptr) return false;
    target = *this;
    return target.RemoveAllExcept(pageIndex);
}

bool CRCalFile::RemoveAllExcept(int32_t pageIndex) {
    if (page(pageIndex) == nullptr) return false;
    TArray<CAL_PAGE>& pages = m_document->pages;
    const auto kept = static_cast<uint32_t>(pageIndex);
    pages.Remove(kept + 1, pages.size() - kept - 1);
    pages.Remove(0, kept);
    return true;
}

bool CRCalFile::Merge(const CRCalFile& a, const CRCalFile& b, const CRCalFile& c, const CRCalFile& d, int32_t which) {
    TArray<CRCalFile*> calibrations;
    for (const CRCalFile* each : {&a, &b, &c, &d}) calibrations.Add(const_cast<CRCalFile*>(each));
    return Merge(calibrations, which);
}

bool CRCalFile::Merge(const TArray<CRCalFile*>& calibrations, int32_t which) {
    const uint32_t count = calibrations.size();
    if (count == 0 || count > rcalLimits::mostPages) return false;
    TArray<CAL_PAGE> pages;
    if (!pages.reserve(count)) return false;
    for (const CRCalFile* each : calibrations) {
        const CAL_PAGE* first = each == nullptr ? nullptr : each->page(0);
        if (first == nullptr || !pages.Add(*first)) return false;
    }
    const bool known = which > 0 && static_cast<uint32_t>(which) < count;
    *this = *calibrations[known ? static_cast<uint32_t>(which) : 0];
    m_document->pages = pages;
    return true;
}

bool CRCalFile::ImportPreset(const CRCalFile& source, int32_t sourcePage, int32_t destPage) {
    const CAL_PAGE* found = source.page(sourcePage);
    if (found == nullptr || destPage < 0 || destPage >= presetPages) return false;
    const CAL_PAGE copy(*found);  // the array that holds it may grow
    TArray<CAL_PAGE>& pages = m_document->pages;
    while (pages.size() <= static_cast<uint32_t>(destPage)) {
        if (!pages.Add(CAL_PAGE())) return false;
    }
    pages[static_cast<uint32_t>(destPage)] = copy;
    UpdateCalPage(destPage);
    UpdateCalPageLookup(destPage);
    return true;
}

}  // namespace qv
