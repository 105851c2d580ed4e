// The texts of a table's columns, and their lines in the file.
#pragma once

#include <cstddef>

#include "qv/pod_file.h"

namespace qv::Private {

inline constexpr size_t podNameChars = 128;
inline constexpr size_t podUnitsChars = 64;

/// A text of COLUMN, with the tag that says whether its line is there. In the order of the lines.
struct PodDescription {
    const char16_t* tag;
    size_t chars;
    char16_t* (*text)(CPODFile::COLUMN&);
};
inline constexpr PodDescription podDescriptions[] = {
    {u"PNSize", podNameChars, [](CPODFile::COLUMN& c) -> char16_t* { return c.name; }},
    {u"PUSize", podUnitsChars, [](CPODFile::COLUMN& c) -> char16_t* { return c.units; }},
    {u"PCSize", podNameChars, [](CPODFile::COLUMN& c) -> char16_t* { return c.classification; }},
    {u"PTSize", podUnitsChars, [](CPODFile::COLUMN& c) -> char16_t* { return c.type; }},
};

}  // namespace qv::Private
