// The keys of the older header form, as import and export share them.
#pragma once

#include <cstdint>
#include <string_view>

#include "qv/rcal_file.h"
#include "qv/string.h"

namespace qv::rcalHeader {

inline constexpr char16_t includeKey[] = u"Include";
inline constexpr char16_t calibrationKey[] = u"CAFile";
inline constexpr char16_t bandLowKey[] = u"SBPLo";
inline constexpr char16_t bandHighKey[] = u"SBPUp";
inline constexpr char16_t fovHorzKey[] = u"IHFOV";
inline constexpr char16_t fovVertKey[] = u"IVFOV";
inline constexpr char16_t rangeKey[] = u"SltRng";

// Keys of the pages: these stems, and behind them "_" and the page.
inline constexpr char16_t factorStem[] = u"TPFact";
inline constexpr char16_t backgroundTypeStem[] = u"BgType";
inline constexpr char16_t backgroundFileStem[] = u"BgFile";
inline constexpr char16_t backgroundValueStem[] = u"BgValu";

/// What is said of every page alike.
struct FixedKey {
    const char16_t* stem;
    const char16_t* value;
};
inline constexpr FixedKey fixedKeys[] = {{u"EuRaw", u"Raw"}, {u"StdUnt", u"17"}, {u"DaUnit", u"W/(sr-cm^2)"}};

/// A page's polynomials: how their keys are called, and how a calibration gives and takes them.
struct PolynomialKeys {
    const char16_t* orderStem;
    const char16_t* coefficientStem;  ///< The coefficient's index follows.
    bool (CRCalFile::*getOrder)(int32_t page, int32_t& order) const;
    bool (CRCalFile::*getCoefficients)(int32_t page, TArray<double>& values) const;
    bool (CRCalFile::*setUsed)(int32_t page, int32_t order, const double* values, bool valid);
};
inline constexpr PolynomialKeys polynomials[] = {
    {u"PolyOrder", u"Coeff", &CRCalFile::GetPolyOrder, &CRCalFile::GetCoefficients, &CRCalFile::SetUsedCoefficients},
    {u"TempPolyOrder", u"TempCoeff", &CRCalFile::GetTempPolyOrder, &CRCalFile::GetTempCoefficients,
     &CRCalFile::SetUsedTempCoefficients},
};

/// The words of a background's type. Without a background of either kind "none" is written.
struct BackgroundWord {
    BACKGROUND_TYPE type;
    const char16_t* word;
};
inline constexpr BackgroundWord backgroundTypeWords[] = {
    {BACKGROUND_TYPE::none, u"none"}, {BACKGROUND_TYPE::file, u"file"}, {BACKGROUND_TYPE::value, u"fix"}};
const char16_t* backgroundWord(BACKGROUND_TYPE type);

/// "TPFact_2", "Coeff3_2".
CString pageKey(const char16_t* stem, int32_t page);
CString coefficientKey(const char16_t* stem, uint32_t index, int32_t page);

/// The page that a key says something of: one of the stems, for coefficients with an index, then "_0" to "_3" or
/// nothing, which is page 0 (but not for the fixed keys). -1 for all other names.
int32_t pageOfKey(std::u16string_view name);

}  // namespace qv::rcalHeader
