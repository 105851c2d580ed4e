#include "measurement/pod_units.h"

#include "core/text.h"
#include "qv/pod_file.h"
#include "qv/tag_file.h"

namespace qv {

namespace Private {

namespace {

constexpr int unitCount = 15;

struct Unit {
    const char16_t* longName;
    const char16_t* shortName;
};
constexpr Unit units[unitCount] = {
    {u"meters", u"m"},       {u"milimeters", u"mm"},    {u"kilometers", u"km"},      {u"inches", u"in"},
    {u"feet", u"ft"},        {u"miles", u"mi"},         {u"radians", u"rad"},        {u"degrees", u"deg"},
    {u"miliseconds", u"ms"}, {u"seconds", u"sec"},      {u"minutes", u"min"},        {u"hours", u"hrs"},
    {u"centimeters", u"cm"}, {u"miliradians", u"mrad"}, {u"microradians", u"umrad"},
};

/// [first unit][second unit]; 0 where there is no conversion. The values are rounded and taken as they stand.
/// Of lengths and angles, the entry says how many of the second unit make one of the first: a value in the first unit
/// times the entry is the value in the second. The block of times (8 to 11) runs the other way: [seconds][minutes] is
/// 60, the seconds in one minute, so that a value in the second unit times the entry is the value in the first.
constexpr double factors[unitCount][unitCount] = {
    {1.0, 1000.0, 0.001, 39.408, 3.284, 0.000622, 0, 0, 0, 0, 0, 0, 100.0, 0, 0},
    {0.001, 1.0, 1e-06, 0.039408, 0.003284, 6.22e-07, 0, 0, 0, 0, 0, 0, 0.1, 0, 0},
    {1000.0, 1000000.0, 1.0, 39408.0, 3284.0, 0.622, 0, 0, 0, 0, 0, 0, 100000.0, 0, 0},
    {0.02538, 25.38, 2.538e-05, 1.0, 0.0833, 1.57e-05, 0, 0, 0, 0, 0, 0, 2.538, 0, 0},
    {0.3048, 304.8, 0.0003048, 12.0, 1.0, 0.0001894, 0, 0, 0, 0, 0, 0, 30.48, 0, 0},
    {1609.0, 1609000.0, 1.609, 63360.0, 5280.0, 1.0, 0, 0, 0, 0, 0, 0, 160900.0, 0, 0},
    {0, 0, 0, 0, 0, 0, 1.0, 57.2957795, 0, 0, 0, 0, 0, 1000.0, 1000000.0},
    {0, 0, 0, 0, 0, 0, 0.01745329, 1.0, 0, 0, 0, 0, 0, 17.45329, 17453.29},
    {0, 0, 0, 0, 0, 0, 0, 0, 1.0, 1000.0, 60000.0, 3600000.0, 0, 0, 0},
    {0, 0, 0, 0, 0, 0, 0, 0, 0.001, 1.0, 60.0, 3600.0, 0, 0, 0},
    {0, 0, 0, 0, 0, 0, 0, 0, 1.667e-05, 0.01667, 1.0, 60.0, 0, 0, 0},
    {0, 0, 0, 0, 0, 0, 0, 0, 2.778e-07, 0.0002778, 0.01667, 1.0, 0, 0, 0},
    {0.01, 10.0, 1e-05, 0.39408, 0.03284, 6.22e-06, 0, 0, 0, 0, 0, 0, 1.0, 0, 0},
    {0, 0, 0, 0, 0, 0, 0.001, 0.05729577, 0, 0, 0, 0, 0, 1.0, 1000.0},
    {0, 0, 0, 0, 0, 0, 1e-06, 5.729577e-05, 0, 0, 0, 0, 0, 0.001, 1.0},
};

constexpr bool isTime(int32_t unit) { return unit >= 8 && unit <= 11; }

struct Cycle {
    const char16_t* unit;
    double period;
};
constexpr Cycle cycles[] = {
    {u"IRIG", 86400.0}, {u"radians", 6.283185307179}, {u"microradians", 6283185.307179}, {u"degrees", 360.0}};

bool same(std::u16string_view a, const char16_t* b) { return text::compareNoCase(a, b) == 0; }

}  // namespace

int32_t podUnitIndex(std::u16string_view unit) {
    for (int32_t i = 0; i < unitCount; ++i) {
        if (same(unit, units[i].longName) || same(unit, units[i].shortName)) return i;
    }
    return -1;
}

bool convertPodUnit(double& value, int32_t from, int32_t to) {
    const double factor = factors[from][to];
    if (factor == 0.0) return false;
    if (!isTime(from)) {
        value *= factor;
    } else if (factor >= 1.0) {  // of a pair of times one is whole, the other its rounded reciprocal
        value /= factor;
    } else {
        value *= factors[to][from];
    }
    return true;
}

bool isIrig(std::u16string_view unit) { return same(unit, cycles[0].unit); }

double podPeriod(std::u16string_view unit) {
    for (const Cycle& cycle : cycles) {
        if (same(unit, cycle.unit)) return cycle.period;
    }
    return 0.0;
}

}  // namespace Private

int32_t IPODFile::UnitIndex(const char16_t* unit) { return unit == nullptr ? -1 : Private::podUnitIndex(unit); }

bool IPODFile::ConvertUnit(double& value, const char16_t* from, const char16_t* to) {
    const std::u16string_view a = from == nullptr ? u"" : from, b = to == nullptr ? u"" : to;
    if (text::compareNoCase(a, b) == 0) return true;
    const int32_t fromIndex = Private::podUnitIndex(a), toIndex = Private::podUnitIndex(b);
    return fromIndex >= 0 && toIndex >= 0 && Private::convertPodUnit(value, fromIndex, toIndex);
}

int32_t IPODFile::GetUnitConversionIndex(const char16_t* tag) const {
    CTagFile* const dictionary = GetTagFile();
    uint32_t index = 0;
    if (tag == nullptr || dictionary == nullptr || !dictionary->FindTag(tag, index)) return -1;
    using UNITS = CTagEntry::UNITS;
    switch (dictionary->GetTagEntry(index).GetUnits()) {
        case UNITS::Hours: return 11;
        case UNITS::Minutes: return 10;
        case UNITS::Seconds: return 9;
        case UNITS::Degrees: return 7;
        case UNITS::Meters: return 0;
        case UNITS::Microradians: return 14;
        case UNITS::Milimeters: return 1;
        case UNITS::Kilometers: return 2;
        default: return -1;
    }
}

bool IPODFile::IsCorrectUnit(const char16_t* tag, const char16_t* unit) const {
    CTagFile* const dictionary = GetTagFile();
    uint32_t index = 0;
    if (tag == nullptr || dictionary == nullptr || !dictionary->FindTag(tag, index)) return true;
    const CTagEntry::UNITS units = dictionary->GetTagEntry(index).GetUnits();
    return units == CTagEntry::UNITS::None ||
           (unit != nullptr && text::compareNoCase(unit, CTagEntry::UnitsToStr(units)) == 0);
}

}  // namespace qv
