// Writing the older form: a text header, its include file and its companions.
#include <algorithm>
#include <string_view>

#include "core/text.h"
#include "measurement/rcal/backgrounds.h"
#include "measurement/rcal/document.h"
#include "measurement/rcal/files.h"
#include "measurement/rcal/header_keys.h"
#include "measurement/whole_file.h"
#include "qv/diagnostic.h"
#include "qv/saf_file.h"

namespace qv {

namespace {

using namespace rcalHeader;

/// The longest header line that is read back, its end included.
constexpr size_t longestLineBytes = 511;

/// A tag that comes back from a header as it is.
bool fitsLine(const CString& name, const CString& value) {
    const std::u16string_view key(name);
    const std::u16string_view text(value);
    if (key.empty() || key.find_first_of(u" \r\n") != key.npos || text.find_first_of(u"\r\n") != text.npos)
        return false;
    if (!text.empty() && (text.front() == u' ' || text.back() == u' ')) return false;
    for (const char16_t* own : {u"HdSize", u"DATA", u"saf_padding"}) {
        if (name.CompareNoCase(own) == 0) return false;
    }
    return text::convertedLength(key) + text::convertedLength(text) + 3 <= longestLineBytes;
}

bool writeHeader(IFileSystem* fs, const CString& path, CSAFFile& header) {
    const TSharedPtr<CMemFile> text = CMemFile::Create();
    uint32_t position = 0;
    header.SaveTo(text, position, false);
    return Private::writeWhole(fs, path.c_str(), [&](const auto& file) {
        if (file->WriteBytes(text->GetData(), text->size())) return true;
        SetDiagnostic(CString(), u"room for the header", u"a short write");
        return false;
    });
}

void addPolynomial(const CRCalFile& calibration, const PolynomialKeys& named, int32_t page, CSAFFile& header) {
    int32_t order = 0;
    TArray<double> values;
    (calibration.*named.getOrder)(page, order);
    (calibration.*named.getCoefficients)(page, values);
    header.AddTag(pageKey(named.orderStem, page).c_str(), CString::FromFormat(u"%d", order).c_str());
    const uint32_t count = std::min(values.size(), static_cast<uint32_t>(CRCalFile::GetNumCoeffsForOrder(order)));
    for (uint32_t i = 0; i < count; ++i) {
        header.AddTag(coefficientKey(named.coefficientStem, i, page).c_str(),
                      CString::FromFormat(u"%e", values.data()[i]).c_str());
    }
}

/// The background's keys. Its pictures go into a file beside the header, whose path without extension is `base`.
bool addBackground(const CAL_PAGE& record, int32_t page, IFileSystem* fs, const CString& base, CSAFFile& header) {
    header.AddTag(pageKey(backgroundTypeStem, page).c_str(), backgroundWord(record.backgroundType));
    if (record.backgroundType == BACKGROUND_TYPE::value) {
        header.AddTag(pageKey(backgroundValueStem, page).c_str(),
                      CString::FromFormat(u"%e", record.backgroundValue).c_str());
    }
    const auto& pictures = record.backgroundFiles;
    if (record.backgroundType != BACKGROUND_TYPE::file ||
        std::none_of(pictures.begin(), pictures.end(), rcalBackground::hasItsPixels)) {
        return true;
    }
    const CString path = base + CString::FromFormat(u"-PS%d.bgimg", page);
    header.AddTag(pageKey(backgroundFileStem, page).c_str(), IFileSystem::GetFilename(path.c_str()));
    return Private::writeWhole(fs, path.c_str(), [&](const auto& file) {
        return std::all_of(pictures.begin(), pictures.end(), [&](const BACKGROUND_FILE& each) {
            return !rcalBackground::hasItsPixels(each) || rcalBackground::save(each, *file);
        });
    });
}

/// The keys of all pages that the form has keys for, and the files of their backgrounds.
bool addPages(const CRCalFile& calibration, IFileSystem* fs, const CString& base, CSAFFile& header) {
    for (int32_t page = 0; page < CRCalFile::presetPages && calibration.GetPage(page) != nullptr; ++page) {
        const CAL_PAGE& record = *calibration.GetPage(page);
        for (const FixedKey& each : fixedKeys) header.AddTag(pageKey(each.stem, page).c_str(), each.value);
        if (!addBackground(record, page, fs, base, header)) return false;
        if (record.tpfactValid) {
            const CString value = CString::FromFormat(u"%e", record.tpfact);
            header.AddTag(pageKey(factorStem, page).c_str(), value.c_str());
            if (page == 0) header.AddTag(factorStem, value.c_str());
        }
        for (const PolynomialKeys& each : polynomials) addPolynomial(calibration, each, page, header);
    }
    return true;
}

void addCalibration(const CRCalFile& calibration, CSAFFile& header) {
    const auto add = [&](const char16_t* key, double value) {
        header.AddTag(key, CString::FromFormat(u"%e", value).c_str());
    };
    double low = 0.0;
    double high = 0.0;
    calibration.GetBandpass(low, high);
    add(bandLowKey, low);
    add(bandHighKey, high);
    bool valid = false;
    double horz = 0.0;
    double vert = 0.0;
    calibration.GetFOV(horz, vert, valid);
    if (valid) {
        add(fovHorzKey, horz);
        add(fovVertKey, vert);
    }
    double range = 0.0;
    calibration.GetRange(range, valid);
    if (valid) add(rangeKey, range);
}

void addTags(const CRCalFile& calibration, CSAFFile& header) {
    for (const CTagArray::TAG& tag : calibration.GetTags()) {
        const bool ours = CRCalFile::IsReservedTagName(tag.name.c_str()) || pageOfKey(tag.name) >= 0 ||
                          tag.name.CompareNoCase(includeKey) == 0;
        if (!ours && fitsLine(tag.name, tag.value)) header.AddTag(tag.name.c_str(), tag.value.c_str());
    }
}

}  // namespace

bool CRCalFile::Export(IFileSystem* fs, const char16_t* path, const char16_t* calibrationFile) {
    if (fs == nullptr || path == nullptr) return false;
    const CString base = rcalFiles::withoutExtension(path);
    const auto nameOf = [&](const char16_t* extension) {
        return CString(IFileSystem::GetFilename((base + extension).c_str()));
    };
    const CString companion = calibrationFile != nullptr ? CString(calibrationFile) : nameOf(u".rcal");
    CSAFFile include;
    include.New(false);
    CSAFFile header;
    header.New(false);
    header.AddTag(includeKey, nameOf(u".inc").c_str());
    addCalibration(*this, header);
    header.AddTag(calibrationKey, companion.c_str());
    if (!fitsLine(includeKey, nameOf(u".inc")) || !fitsLine(calibrationKey, companion)) {
        SetDiagnostic(path, u"names that fit a header line", companion);
        return false;
    }
    addTags(*this, header);
    // The header comes last: what it names is there.
    if (!addPages(*this, fs, base, include)) return false;
    if (calibrationFile == nullptr && !Save(fs, (base + u".rcal").c_str(), 0)) {
        return false;
    }
    return writeHeader(fs, base + u".inc", include) && writeHeader(fs, base + u".cal", header);
}

bool CRCalFile::UpdateInclude(IFileSystem* fs, const char16_t* path) {
    if (fs == nullptr || path == nullptr) return false;
    const CString kept(path);
    CSAFFile before;
    if (!before.Load(fs, kept.c_str())) return false;
    CSAFFile include = before;
    include.New(true);
    for (uint32_t i = 1; i + 1 < before.nTags(); ++i) {
        if (pageOfKey(before[i].name) < 0) include.AddTag(before[i].name.c_str(), before[i].value.c_str());
    }
    if (!addPages(*this, fs, rcalFiles::withoutExtension(kept), include)) return false;
    ClearDiagnostic();  // the header's writes report by nothing else
    return include.Save() && !LastDiagnostic().IsSet();
}

}  // namespace qv
