#include "measurement/rcal/xml_form.h"

#include <algorithm>

#include "measurement/rcal/xml_fields.h"
#include "qv/base64.h"

namespace qv {

namespace {

using namespace rcalFields;
using namespace rcalXml;
using CNode = CXMLFile::CNode;

CNode* addChild(CNode& parent, const char16_t* name) {
    auto* child = new CNode(CXMLFile::NODETYPE_ELEMENT, CString(name));
    parent.InsertChild(child, true);
    return child;
}

// The elements whose attributes are more than one part's fields.

template <class Fields>
void spectralResponse(Fields&& f, Document& d, int32_t& type) {
    f(u"file", d.spectralFile);
    tophat(f, d);
    f(u"type", type);
}
template <class Fields>
void modtran(Fields&& f, Document& d) {
    f(u"file", d.modtranFile);
    modtranEnabled(f, d);
}
template <class Fields>
void additionalResponse(Fields&& f, RESPONCE& r) {
    f(u"file", r.file);
    responseEnabled(f, r);
}
template <class Fields>
void backgroundFile(Fields&& f, BACKGROUND_FILE& b, int32_t& type) {
    backgroundPlace(f, b);
    f(u"type", type);
}

// Bodies -------------------------------------------------------------------------------------------------------------

void setPairs(CNode& node, const TArray<double>& x, const TArray<double>& y) {
    node.value = CString(std::u16string_view(formatPairs(x, y)));
}

/// The pixels, which stand as Base64. A body that does not hold exactly the stated picture leaves it without pixels.
void loadPixels(const CNode& node, BACKGROUND_FILE& picture) {
    const uint64_t count = uint64_t{picture.width} * picture.height;
    const uint64_t bytes = Base64DecodedSize(node.value);
    if (count == 0 || count > bytes || count * DataTypeSize(picture.type) != bytes) return;
    TSharedPtr<ITypedBuffer> pixels = AllocTypedBuffer(picture.type, static_cast<uint32_t>(count));
    size_t written = 0;
    if (pixels && Base64Decode(node.value, pixels->data(), static_cast<size_t>(bytes), written)) {
        picture.pixels = pixels;
    }
}

void savePixels(CNode& node, const BACKGROUND_FILE& picture) {
    if (picture.pixels) node.value = Base64Encode(picture.pixels->data(), picture.pixels->sizeInBytes());
}

void loadTags(const CNode& parent, CTagArray& tags) {
    const CNode* list = parent.FindChild(u"tags");
    if (list == nullptr) return;
    for (const CNode* node = list->FindChild(u"tag"); node != nullptr; node = node->FindNext(u"tag")) {
        CTagArray::TAG& added = tags[static_cast<int32_t>(tags.nItems())];
        tag(Reader(*node), added.name, added.value);
    }
}

void saveTags(CNode& parent, CTagArray& tags) {
    CNode* list = addChild(parent, u"tags");
    for (uint32_t i = 0; i < tags.nItems(); ++i) {
        CTagArray::TAG& saved = tags[static_cast<int32_t>(i)];
        tag(Writer(*addChild(*list, u"tag")), saved.name, saved.value);
    }
}

// Pages --------------------------------------------------------------------------------------------------------------

/// Runs `read` on the child of that name, when there is one.
template <class Read>
void onChild(const CNode& parent, const char16_t* name, Read read) {
    if (const CNode* child = parent.FindChild(name)) read(*child);
}

/// Adds an element for each child `name` of the child `list`, which `read` fills.
template <class T, class Read>
void onEach(const CNode& parent, const char16_t* list, const char16_t* name, TArray<T>& elements, Read read) {
    const CNode* container = parent.FindChild(list);
    if (container == nullptr) return;
    elements.reserve(container->NumChildren(name));  // arrays grow by small steps
    for (const CNode* child = container->FindChild(name); child != nullptr; child = child->FindNext(name)) {
        T element;
        read(*child, element);
        elements.Add(element);
    }
}

void loadOverride(const CNode& page, const char16_t* name, POLY_OVERRIDE& polynomial) {
    onChild(page, name, [&](const CNode& node) {
        overriddenFit(Reader(node), polynomial);
        parseList(node.value, polynomial.values);
    });
}

void loadFit(const CNode& page, const char16_t* name, int32_t& order, double& r2, TArray<double>& coefficients) {
    onChild(page, name, [&](const CNode& node) {
        calculatedFit(Reader(node), order, r2);
        parseList(node.value, coefficients);
    });
}

void loadPage(const CNode& node, CAL_PAGE& p) {
    pageAttributes(Reader(node), p);
    onChild(node, u"range", [&](const CNode& child) { pageRange(Reader(child), p); });
    loadFit(node, u"coeffs", p.polyOrder, p.r2, p.coeffs);
    loadOverride(node, u"coeffsOverride", p.coeffsOverride);
    loadFit(node, u"tempCoeffs", p.tempPolyOrder, p.tempR2, p.tempCoeffs);
    loadOverride(node, u"tempCoeffsOverride", p.tempCoeffsOverride);
    onChild(node, u"tpfact", [&](const CNode& child) { tpfact(Reader(child), p); });
    onChild(node, u"background", [&](const CNode& child) { background(Reader(child), p); });
    onEach(node, u"backgroundFiles", u"backgroundFile", p.backgroundFiles,
           [](const CNode& child, BACKGROUND_FILE& picture) {
               int32_t type = static_cast<int32_t>(picture.type);
               backgroundFile(Reader(child), picture, type);
               picture.type = static_cast<EDataType>(type);
               loadPixels(child, picture);
           });
    onChild(node, u"check", [&](const CNode& child) { check(Reader(child), p); });
    onEach(node, u"calPoints", u"calPoint", p.points,
           [](const CNode& child, CAL_POINT& point) { calPoint(Reader(child), point); });
    onChild(node, u"lookup", [&](const CNode& child) {
        lookup(Reader(child), p);
        parsePairs(child.value, p.lookupRadiance, p.lookupTemperature);
    });
    loadTags(node, p.tags);
}

void saveOverride(CNode& page, const char16_t* name, POLY_OVERRIDE& polynomial) {
    CNode* node = addChild(page, name);
    overriddenFit(Writer(*node), polynomial);
    node->value = formatList(polynomial.values);
}

void saveFit(CNode& page, const char16_t* name, int32_t& order, double& r2, const TArray<double>& coefficients) {
    CNode* node = addChild(page, name);
    calculatedFit(Writer(*node), order, r2);
    node->value = formatList(coefficients);
}

void savePage(CNode& node, CAL_PAGE& p) {
    pageAttributes(Writer(node), p);
    pageRange(Writer(*addChild(node, u"range")), p);
    saveFit(node, u"coeffs", p.polyOrder, p.r2, p.coeffs);
    saveOverride(node, u"coeffsOverride", p.coeffsOverride);
    saveFit(node, u"tempCoeffs", p.tempPolyOrder, p.tempR2, p.tempCoeffs);
    saveOverride(node, u"tempCoeffsOverride", p.tempCoeffsOverride);
    tpfact(Writer(*addChild(node, u"tpfact")), p);
    background(Writer(*addChild(node, u"background")), p);
    CNode* pictures = addChild(node, u"backgroundFiles");
    for (BACKGROUND_FILE& picture : p.backgroundFiles) {
        CNode* child = addChild(*pictures, u"backgroundFile");
        int32_t type = static_cast<int32_t>(picture.type);
        backgroundFile(Writer(*child), picture, type);
        savePixels(*child, picture);
    }
    check(Writer(*addChild(node, u"check")), p);
    CNode* points = addChild(node, u"calPoints");
    for (CAL_POINT& saved : p.points) calPoint(Writer(*addChild(*points, u"calPoint")), saved);
    CNode* table = addChild(node, u"lookup");
    lookup(Writer(*table), p);
    setPairs(*table, p.lookupRadiance, p.lookupTemperature);
    saveTags(node, p.tags);
}

// The atmosphere's two curves share their axis: the body holds the pairs of the total transmission and, behind them, as
// many of the path's thermal radiance.

void joinCurves(const RCAL_CURVE& first, const RCAL_CURVE& second, TArray<double>& x, TArray<double>& y) {
    for (const RCAL_CURVE* curve : {&first, &second}) {
        for (const double value : curve->rawX) x.Add(value);
        for (const double value : curve->rawY) y.Add(value);
    }
}

void splitCurves(const TArray<double>& x, const TArray<double>& y, RCAL_CURVE& first, RCAL_CURVE& second) {
    const uint32_t half = x.size() / 2;
    for (uint32_t i = 0; i < 2 * half; ++i) {
        RCAL_CURVE& curve = i < half ? first : second;
        curve.rawX.Add(x[i]);
        curve.rawY.Add(y[i]);
    }
}

}  // namespace

void RCalXml::load(const CNode& root) {
    Document& d = m_document;
    Reader{root}(u"revision", d.revision);
    onChild(root, u"bandpass", [&](const CNode& node) { bandpass(Reader(node), d); });
    onChild(root, u"bandpassOverride", [&](const CNode& node) { bandpassOverride(Reader(node), d); });
    onChild(root, u"range", [&](const CNode& node) { range(Reader(node), d); });
    onChild(root, u"fov", [&](const CNode& node) { fov(Reader(node), d); });
    onChild(root, u"spectralResponse", [&](const CNode& node) {
        auto type = static_cast<int32_t>(d.spectralType);
        spectralResponse(Reader(node), d, type);
        d.spectralType = static_cast<StoredResponseType>(type);
        d.spectralEnabled = d.spectralType == StoredResponseType::file && !d.spectralFile.IsEmpty();
        parsePairs(node.value, d.response.rawX, d.response.rawY);
    });
    onChild(root, u"modtran", [&](const CNode& node) {
        modtran(Reader(node), d);
        TArray<double> x;
        TArray<double> y;
        parsePairs(node.value, x, y);
        splitCurves(x, y, d.totalTransmission, d.pathThermal);
    });
    onEach(root, u"additonalResponses", u"additionalResponse", d.additionalResponses,
           [](const CNode& node, RESPONCE& added) {
               additionalResponse(Reader(node), added);
               parsePairs(node.value, added.curve.rawX, added.curve.rawY);
           });
    onEach(root, u"calPages", u"calPage", d.pages, loadPage);
    loadTags(root, d.tags);
}

CNode* RCalXml::save() const {
    Document& d = m_document;
    auto* root = new CNode(CXMLFile::NODETYPE_ELEMENT, CString(u"rcal"));
    int32_t revision = rcalLimits::writtenRevision;
    Writer{*root}(u"revision", revision);
    bandpass(Writer(*addChild(*root, u"bandpass")), d);
    bandpassOverride(Writer(*addChild(*root, u"bandpassOverride")), d);
    range(Writer(*addChild(*root, u"range")), d);
    fov(Writer(*addChild(*root, u"fov")), d);

    CNode* response = addChild(*root, u"spectralResponse");
    auto type = static_cast<int32_t>(d.spectralType);
    spectralResponse(Writer(*response), d, type);
    setPairs(*response, d.response.rawX, d.response.rawY);

    CNode* atmosphere = addChild(*root, u"modtran");
    modtran(Writer(*atmosphere), d);
    TArray<double> x;
    TArray<double> y;
    joinCurves(d.totalTransmission, d.pathThermal, x, y);
    setPairs(*atmosphere, x, y);

    CNode* responses = addChild(*root, u"additonalResponses");  // spelled as the form spells it
    for (RESPONCE& saved : d.additionalResponses) {
        CNode* node = addChild(*responses, u"additionalResponse");
        additionalResponse(Writer(*node), saved);
        setPairs(*node, saved.curve.rawX, saved.curve.rawY);
    }
    CNode* pages = addChild(*root, u"calPages");
    for (CAL_PAGE& saved : d.pages) savePage(*addChild(*pages, u"calPage"), saved);
    saveTags(*root, d.tags);
    return root;
}

}  // namespace qv
