// Reading the older form: a text header, its include file and its companions.
#include "measurement/rcal/header_import.h"

#include <algorithm>
#include <cmath>
#include <string_view>
#include <unordered_set>

#include "core/text.h"
#include "measurement/rcal/document.h"
#include "measurement/rcal/files.h"
#include "measurement/rcal/header_keys.h"
#include "qv/diagnostic.h"
#include "qv/norm_file.h"

namespace qv {

namespace rcalHeader {

namespace {

/// Digits that export writes, and enough to tell any two numbers apart.
constexpr size_t writtenDigits = 7;
constexpr size_t mostDigits = 17;

std::u16string lowerCase(std::u16string_view name) {
    std::u16string lower(name);
    for (char16_t& ch : lower) ch = text::toLower(ch);
    return lower;
}

}  // namespace

bool Keys::load(IFileSystem* fs, const CString& path) {
    m_path = path;
    if (!m_header.Load(fs, path.c_str())) return false;
    index(m_header);
    const char16_t* included = find(includeKey);
    if (included == nullptr) return true;
    const CString name = companion(included);
    if (!name.IsEmpty() && m_include.Load(fs, name.c_str())) {
        index(m_include);
    } else {
        m_include.Destroy();
    }
    return true;
}

void Keys::index(const CSAFFile& file) {
    for (uint32_t i = 1; i + 1 < file.nTags(); ++i)
        m_values.try_emplace(lowerCase(file[i].name), file[i].value.c_str());
}

const char16_t* Keys::find(const CString& name) const {
    const auto found = m_values.find(lowerCase(name));
    return found == m_values.end() ? nullptr : found->second;
}

const char16_t* Keys::ofPage(const CString& stem, int32_t page) const {
    const char16_t* value = find(pageKey(stem.c_str(), page));
    return value == nullptr && page == 0 ? find(stem) : value;
}

CString Keys::companion(const CString& value) const {
    return value.IsEmpty() ? CString() : rcalFiles::beside(m_path, value);
}

int32_t Keys::pages() const {
    int32_t last = -1;
    for (const auto& [name, value] : m_values) last = std::max(last, pageOfKey(name));
    return last + 1;
}

bool agrees(const char16_t* text, double own) {
    size_t digits = 0;  // significant ones
    for (const char16_t ch : std::u16string_view(text)) {
        if (ch == u'e' || ch == u'E') break;
        if (text::isDigit(ch) && (ch != u'0' || digits != 0)) ++digits;
    }
    const size_t decimals = std::clamp(digits, writtenDigits, mostDigits) - 1;
    return text::wtof(CString::FromFormat(u"%0.*e", static_cast<int32_t>(decimals), own)) == text::wtof(text);
}

}  // namespace rcalHeader

namespace {

using namespace rcalHeader;

/// Keys that the form has for its own sake, beside the reserved ones.
bool isLayoutKey(const SAF_TAG& tag) {
    if (tag.name.CompareNoCase(includeKey) == 0) return true;
    const int32_t page = pageOfKey(tag.name);
    if (page < 0) return false;
    for (const FixedKey& each : fixedKeys) {
        if (pageKey(each.stem, page).CompareNoCase(tag.name) == 0) return tag.value.Equals(each.value);
    }
    return true;
}

/// The top-hat of a band has points at this step; up to this end there are few enough of them.
constexpr double longestTophatMicrons = 262.0;

/// Lays the keys over a calibration.
class Overlay {
public:
    /// @param companion  What the calibration holds was loaded; otherwise it has defaults.
    Overlay(CRCalFile& calibration, const Keys& keys, bool companion)
        : m_calibration(calibration),
          m_keys(keys),
          m_loadedPages(calibration.calPages().getCount()),
          m_companion(companion) {}

    void band() {
        double low = 0.0;
        double high = 0.0;
        m_calibration.GetBandpass(low, high);
        const bool changedLow = take(m_keys.find(bandLowKey), low);
        const bool changedHigh = take(m_keys.find(bandHighKey), high);
        if (!m_companion && low > 0.0 && low < high && high <= longestTophatMicrons) {
            m_calibration.spectralResponse().setType(ESpectralResponseType::tophat);
            m_calibration.tophat().setStart(low);
            m_calibration.tophat().setEnd(high);
        }
        const bool already = !m_calibration.GetBandpassOverridden() && m_calibration.EqualBandpass(low, high);
        if ((changedLow || changedHigh) && !already) m_calibration.SetUsedBandpass(low, high, true);
    }

    void geometry() {
        double horz = 0.0;
        double vert = 0.0;
        bool valid = false;
        m_calibration.GetFOV(horz, vert, valid);
        const bool horzChanged = takeValid(m_keys.find(fovHorzKey), horz, valid);
        const bool vertChanged = takeValid(m_keys.find(fovVertKey), vert, valid);
        if (horzChanged || vertChanged) m_calibration.SetFOV(horz, vert, true);

        double range = 0.0;
        m_calibration.GetRange(range, valid);
        if (takeValid(m_keys.find(rangeKey), range, valid)) m_calibration.SetRange(range, true);
    }

    void page(IFileSystem* fs, int32_t index) {
        double factor = 1.0;
        bool valid = false;
        m_calibration.GetTPFact(index, factor, valid);
        if (takeValid(m_keys.ofPage(factorStem, index), factor, valid)) m_calibration.SetTPFact(index, factor, true);
        background(fs, index);
        for (const PolynomialKeys& each : polynomials) polynomial(each, index);
    }

    /// Names that are not reserved, but for those that only say how the form is laid out. Of several with one name the
    /// first counts.
    void tags(CTagArray& tags) {
        std::unordered_map<std::u16string, int32_t> places;  // of tags by name: there may be many
        int32_t index = 0;
        for (const CTagArray::TAG& tag : tags) places.try_emplace(lowerCase(tag.name), index++);
        std::unordered_set<std::u16string> taken;
        m_keys.forEach([&](const SAF_TAG& tag) {
            if (tag.name.IsEmpty() || CRCalFile::IsReservedTagName(tag.name.c_str()) || isLayoutKey(tag)) return;
            const std::u16string name = lowerCase(tag.name);
            if (!taken.insert(name).second) return;
            const auto place = places.try_emplace(name, static_cast<int32_t>(tags.nItems()));
            CTagArray::TAG& target = tags[place.first->second];
            target.name = tag.name;
            target.value = tag.value;
        });
    }

private:
    /// A key that is there and has a number; any other says nothing.
    static bool hasNumber(const char16_t* text) {
        size_t used = 0;
        return text != nullptr && std::isfinite(text::wtof(text, &used)) && used != 0;
    }
    /// Takes a key's number; false when there is none or `value` is it already.
    static bool take(const char16_t* text, double& value) {
        if (!hasNumber(text) || agrees(text, value)) return false;
        value = text::wtof(text);
        return true;
    }
    /// The same of a value that may not be valid yet.
    static bool takeValid(const char16_t* text, double& value, bool valid) {
        const bool changed = take(text, value);
        return changed || (!valid && hasNumber(text));
    }

    void background(IFileSystem* fs, int32_t index) {
        if (const char16_t* text = m_keys.ofPage(backgroundTypeStem, index)) {
            const BACKGROUND_TYPE own = m_calibration.GetBackgroundType(index);
            BACKGROUND_TYPE type = BACKGROUND_TYPE::notSet;
            for (const BackgroundWord& each : backgroundTypeWords) {
                if (CString(text).CompareNoCase(each.word) == 0) type = each.type;
            }
            // "none" is also written for a type that is not set.
            const bool same = index < m_loadedPages && CString(text).CompareNoCase(backgroundWord(own)) == 0;
            if (!same) m_calibration.SetBackgroundType(index, type);
        }
        double value = m_calibration.GetBackgroundValue(index);
        if (take(m_keys.ofPage(backgroundValueStem, index), value)) m_calibration.SetBackgroundValue(index, value);
        const CString file = m_keys.companion(m_keys.ofPage(backgroundFileStem, index));
        if (!file.IsEmpty()) m_calibration.ImportBackgroundFile(index, fs, file.c_str());
    }

    void polynomial(const PolynomialKeys& named, int32_t index) {
        const char16_t* text = m_keys.ofPage(named.orderStem, index);
        if (!hasNumber(text)) return;
        int32_t ownOrder = 0;
        TArray<double> own;
        (m_calibration.*named.getOrder)(index, ownOrder);
        (m_calibration.*named.getCoefficients)(index, own);
        const int32_t order = text::wtol(text);
        const auto count = static_cast<uint32_t>(CRCalFile::GetNumCoeffsForOrder(order));
        TArray<double> values;
        bool changed = order != ownOrder || own.size() < count;
        for (uint32_t i = 0; i < count; ++i) {
            const char16_t* coefficient = m_keys.ofPage(CString::FromFormat(u"%s%u", named.coefficientStem, i), index);
            if (!hasNumber(coefficient)) return;  // without one of them the others are no polynomial
            double value = i < own.size() ? own.data()[i] : 0.0;
            if (take(coefficient, value)) changed = true;
            if (!values.Add(value)) return;
        }
        if (changed && count != 0) (m_calibration.*named.setUsed)(index, order, values.data(), true);
    }

    CRCalFile& m_calibration;
    const Keys& m_keys;
    const int32_t m_loadedPages;
    const bool m_companion;
};

void loadTable(IFileSystem* fs, const CString& path, CNormFile::FILE_TYPE type, CNormFile* table) {
    if (table == nullptr) return;
    table->Destroy();
    if (path.IsEmpty() || !table->Load(fs, path.c_str()) || table->GetType() == type) {
        if (table->GetType() != type) table->Destroy();
        return;
    }
    SetDiagnostic(path, CString::FromFormat(u"a table of type %d", static_cast<int32_t>(type)),
                  CString::FromFormat(u"type %d", static_cast<int32_t>(table->GetType())));
    table->Destroy();
}

}  // namespace

bool CRCalFile::Import(IFileSystem* fs, const char16_t* path, CNormFile* gains, CNormFile* offsets,
                       CNormFile* badPixels) {
    const CString kept(path);
    DefaultCal();
    const struct {
        const char16_t* key;
        CNormFile::FILE_TYPE type;
        CNormFile* table;
    } tables[] = {{u"CGFile", CNormFile::TYPE_GAIN, gains},
                  {u"COFile", CNormFile::TYPE_OFFSET, offsets},
                  {u"BPFile", CNormFile::TYPE_BAD_PIXEL, badPixels}};
    for (const auto& each : tables) loadTable(fs, CString(), each.type, each.table);
    Keys keys;
    if (fs == nullptr || path == nullptr || !keys.load(fs, kept)) return false;
    for (const auto& each : tables) loadTable(fs, keys.companion(keys.find(each.key)), each.type, each.table);

    const CString calibration = keys.companion(keys.find(calibrationKey));
    const bool companion = !calibration.IsEmpty() && Load(fs, calibration.c_str(), 0);
    if (!companion) DefaultCal();
    Overlay overlay(*this, keys, companion);
    overlay.band();
    overlay.geometry();
    TArray<CAL_PAGE>& pages = m_document->pages;
    if (calPages().getCount() < keys.pages()) {
        // New pages are alike: one table of radiances serves them all.
        const CAL_PAGE* first = page(calPages().Add());
        if (first == nullptr) return false;
        const CAL_PAGE fresh(*first);
        while (calPages().getCount() < keys.pages() && pages.Add(fresh)) continue;
    }
    for (int32_t i = 0; i < std::min(calPages().getCount(), presetPages); ++i) overlay.page(fs, i);
    overlay.tags(m_document->tags);
    return true;
}

}  // namespace qv
