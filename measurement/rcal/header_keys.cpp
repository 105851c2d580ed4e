#include "measurement/rcal/header_keys.h"

#include <string>

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
    if (name == nullptr) return false;
    constexpr char16_t names[] = u"HdSize|CAFile|Group|SBPUp|SBPLo|IHFOV|IVFOV|SltRng";
    // The stem, one character, and the pages' suffixes.
    constexpr const char16_t* coefficients[] = {
        u"Coeff?|Coeff?_0|Coeff?_1|Coeff?_2|Coeff?_3",
        u"TempCoeff?|TempCoeff?_0|TempCoeff?_1|TempCoeff?_2|TempCoeff?_3",
    };
    constexpr const char16_t* stems[] = {u"TPFact", u"BgType", u"BgFile", u"BgValu", u"PolyOrder", u"TempPolyOrder"};
    if (IFileSystem::WildcardMatch(names, name)) return true;
    for (const char16_t* patterns : coefficients) {
        if (IFileSystem::WildcardMatch(patterns, name)) return true;
    }
    for (const char16_t* stem : stems) {
        const CString patterns = CString::FromFormat(u"%s|%s_0|%s_1|%s_2|%s_3", stem, stem, stem, stem, stem);
        if (IFileSystem::WildcardMatch(patterns.c_str(), name)) return true;
    }
    return false;
}

}  // namespace qv
