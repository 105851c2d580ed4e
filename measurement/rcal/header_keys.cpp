#include "measurement/rcal/header_keys.h"

#include <algorithm>
#include <iterator>

#include "core/text.h"
#include "qv/file_system.h"

namespace qv {

namespace rcalHeader {

namespace {

/// The rest of a name behind a stem, without regard to case; false where it does not begin with it.
bool behindStem(std::u16string_view name, std::u16string_view stem, std::u16string_view& rest) {
    if (name.size() < stem.size() || text::compareNoCase(name.substr(0, stem.size()), stem) != 0) return false;
    rest = name.substr(stem.size());
    return true;
}

int32_t pageOfSuffix(std::u16string_view suffix, bool plainCounts) {
    if (suffix.empty()) return plainCounts ? 0 : -1;
    const bool known =
        suffix.size() == 2 && suffix[0] == u'_' && suffix[1] >= u'0' && suffix[1] < u'0' + CRCalFile::presetPages;
    return known ? suffix[1] - u'0' : -1;
}

}  // namespace

const char16_t* backgroundWord(BACKGROUND_TYPE type) {
    for (const BackgroundWord& each : backgroundTypeWords) {
        if (each.type == type) return each.word;
    }
    return backgroundTypeWords[0].word;
}

CString pageKey(const char16_t* stem, int32_t page) { return CString::FromFormat(u"%s_%d", stem, page); }
CString coefficientKey(const char16_t* stem, uint32_t index, int32_t page) {
    return CString::FromFormat(u"%s%u_%d", stem, index, page);
}

int32_t pageOfKey(std::u16string_view name) {
    std::u16string_view rest;
    for (const PolynomialKeys& each : polynomials) {
        if (behindStem(name, each.orderStem, rest)) return pageOfSuffix(rest, true);
        if (!behindStem(name, each.coefficientStem, rest)) continue;
        size_t digits = 0;
        while (digits < rest.size() && text::isDigit(rest[digits])) ++digits;
        return digits == 0 ? -1 : pageOfSuffix(rest.substr(digits), true);
    }
    for (const char16_t* stem : {factorStem, backgroundTypeStem, backgroundFileStem, backgroundValueStem}) {
        if (behindStem(name, stem, rest)) return pageOfSuffix(rest, true);
    }
    for (const FixedKey& each : fixedKeys) {
        if (behindStem(name, each.stem, rest)) return pageOfSuffix(rest, false);
    }
    return -1;
}

}  // namespace rcalHeader

bool CRCalFile::IsReservedTagName(const char16_t* name) {
    // A stem, for coefficients with one character more, then the page or nothing.
    constexpr const char16_t* patterns[] = {
        u"HdSize|CAFile|Group|SBPUp|SBPLo|IHFOV|IVFOV|SltRng",
        u"TPFact|TPFact_0|TPFact_1|TPFact_2|TPFact_3",
        u"BgType|BgType_0|BgType_1|BgType_2|BgType_3",
        u"BgFile|BgFile_0|BgFile_1|BgFile_2|BgFile_3",
        u"BgValu|BgValu_0|BgValu_1|BgValu_2|BgValu_3",
        u"PolyOrder|PolyOrder_0|PolyOrder_1|PolyOrder_2|PolyOrder_3",
        u"TempPolyOrder|TempPolyOrder_0|TempPolyOrder_1|TempPolyOrder_2|TempPolyOrder_3",
        u"Coeff?|Coeff?_0|Coeff?_1|Coeff?_2|Coeff?_3",
        u"TempCoeff?|TempCoeff?_0|TempCoeff?_1|TempCoeff?_2|TempCoeff?_3",
    };
    return name != nullptr && std::any_of(std::begin(patterns), std::end(patterns),
                                          [&](const char16_t* each) { return IFileSystem::WildcardMatch(each, name); });
}

}  // namespace qv
