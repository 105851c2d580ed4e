// Recognising, loading and saving a calibration, whichever form it has.
#include <cmath>
#include <cstring>

#include "measurement/rcal/binary_form.h"
#include "measurement/rcal/document.h"
#include "measurement/rcal/files.h"
#include "measurement/rcal/xml_form.h"
#include "measurement/whole_file.h"
#include "qv/diagnostic.h"
#include "qv/spectral.h"

namespace qv {

using namespace rcalFiles;
using namespace rcalLimits;

namespace {

constexpr char xmlBeginning[] = "<rcal re";

/// The first element of the top level.
CXMLFile::CNode* rootElement(const CXMLFile& xml) {
    CXMLFile::CNode* node = xml.GetRoot();
    while (node != nullptr && node->type != CXMLFile::NODETYPE_ELEMENT) node = node->Next();
    return node;
}

uint32_t countIn(const CXMLFile::CNode& root, const char16_t* list, const char16_t* name) {
    const CXMLFile::CNode* container = root.FindChild(list);
    return container == nullptr ? 0 : container->NumChildren(name);
}

}  // namespace

bool rcalLimits::refuse(const char16_t* what, double most, double found) {
    SetDiagnostic(CString(), CString::FromFormat(u"at most %.0f %s", most, what), CString::FromFormat(u"%.0f", found));
    return false;
}

bool CRCalFile::IsRCalFile(TSharedPtr<IFile> file) {
    char first[8] = {};
    if (!file || !file->ReadBytes(first, sizeof first)) return false;
    if (std::memcmp(first, xmlBeginning, sizeof first) == 0) return true;
    return rcalBinary::isBinary(first) && rcalBinary::readVersion(*file);
}

bool CRCalFile::IsRCalFile(IFileSystem* fs, const CString& path) {
    return fs != nullptr && IsRCalFile(fs->CreateFileW(path.c_str(), openForReading));
}

bool CRCalFile::Load(IFileSystem* fs, const char16_t* path, uint32_t flags) {
    const CString kept(path);
    TSharedPtr<IFile> file;
    if (fs != nullptr && path != nullptr) file = fs->CreateFileW(path, openForReading);
    if (file && Load(file, flags)) return true;
    if (!file) {
        Destroy();
        return false;
    }
    SetDiagnosticFile(kept);
    return false;
}

bool CRCalFile::Load(TSharedPtr<IFile> file, uint32_t) {
    Destroy();
    DefaultCal();
    m_document->revision = 0;
    if (!file) return false;
    char first[8] = {};
    file->ReadBytes(first, sizeof first);
    if (rcalBinary::isBinary(first)) {
        if (rcalBinary::load(*m_document, *file)) return rebuildAfterLoad();
        DefaultCal();  // part of the file's contents would be of no use
        return false;
    }
    file->SeekToBegin();
    CXMLFile xml;
    if (!xml.Load(file)) return false;
    const CXMLFile::CNode* root = rootElement(xml);
    if (root == nullptr || !root->name.EqualsNoCase(u"rcal")) {
        SetDiagnostic(CString(), u"the element rcal", root == nullptr ? CString(u"no element") : root->name);
        return false;
    }
    const uint32_t pages = countIn(*root, u"calPages", u"calPage");
    if (pages > mostPages) return refuse(u"pages", mostPages, pages);
    const uint32_t responses = countIn(*root, u"additonalResponses", u"additionalResponse");
    if (responses > mostAdditionalResponses) {
        return refuse(u"additional responses", mostAdditionalResponses, responses);
    }
    RCalXml(*this).load(*root);
    return rebuildAfterLoad();
}

/// The response curves, then what files of older revisions did not store or stored by older rules. False, with the
/// calibration as it was read, where that would be too much work.
bool CRCalFile::rebuildAfterLoad() {
    Document& d = *m_document;
    const double tophatPoints = std::ceil(std::fabs(d.tophatEnd - d.tophatStart) / d.tophatDelta);
    if (tophatPoints > mostTophatPoints) return refuse(u"points of the top-hat", mostTophatPoints, tophatPoints);
    XAxis(d.response.rawX, d.tophatStart, d.tophatEnd, d.tophatDelta);
    Tophat(d.response.rawX, d.response.rawY);
    LoadSpectralResponse(false);
    LoadModtran(false);
    for (uint32_t i = 0; i < d.additionalResponses.size(); ++i) {
        LoadAdditionalSpectralResponse(static_cast<int32_t>(i), false);
    }
    AdjustAllResponses(false);
    double work = 0.0;
    for (const CAL_PAGE& each : d.pages) work += static_cast<double>(each.points.size()) * d.response.x.size();
    if (d.revision < 6 && work > mostPlanckValues) {
        return refuse(u"radiance values to recalculate", mostPlanckValues, work);
    }
    if (d.revision < 3) {
        UpdateCalPoint(-1, -1, false);
        UpdateCalPageCoeffs(-1);
        UpdateCalPageTempCoeffs(-1);
    } else if (d.revision <= 5) {
        UpdateCalPoint(-1, -1, false);
    }
    if (d.revision < 7) UpdateCalPageRange(-1);
    SortCalPoints(-1, -1);
    return true;
}

bool CRCalFile::Save(IFileSystem* fs, const char16_t* path, uint32_t flags) {
    return Private::writeWhole(fs, path, [&](const auto& file) { return Save(file, flags); });
}

bool CRCalFile::Save(TSharedPtr<IFile> file, uint32_t flags) {
    if (!file) return false;
    if ((flags & saveXml) == 0) return saveBinary(*file);
    CXMLFile xml;
    xml.Insert(RCalXml(*this).save(), true);
    ClearDiagnostic();  // the document's writes report by nothing else
    return xml.Save(file) && !LastDiagnostic().IsSet();
}

bool CRCalFile::saveBinary(IFile& file) { return rcalBinary::save(*m_document, file); }

}  // namespace qv
