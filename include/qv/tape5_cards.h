// A deck of the atmosphere program field by field: what stands where, changing a value by its published name, and what
// the program would read otherwise than it was meant.
#pragma once

#include <cstdint>

#include "qv/api.h"
#include "qv/array.h"
#include "qv/file.h"
#include "qv/shared_ptr.h"
#include "qv/string.h"
#include "qv/tape5_file.h"

namespace qv {

/// One field of a deck. Columns count from 1; both are 0 on cards of free format.
struct TAPE5_FIELD {
    enum KIND : int32_t { Integer, Real, Character, Text };

    int32_t run = 0;               ///< From 0.
    int64_t line = 0;              ///< Of the deck, from 1.
    const char* card = "";         ///< "2C1".
    const char* title = "";        ///< What the card holds.
    CStringMB name;                ///< Published name; elements of lists are counted from 1: "ZM.3", "EXTC.1.12".
    const char* meaning = "";      ///< With the unit.
    uint32_t first = 0, last = 0;  ///< Columns where it was looked for.
    KIND kind = Integer;
    CStringMB text;   ///< As it stands in the deck, without blanks around it.
    CStringMB value;  ///< What the library makes of it: a number in the shortest form that reads back to the same; a
                      ///< text without blanks.
};

/// What the program would read otherwise, ignore or stop at.
struct TAPE5_WARNING {
    int32_t run = 0;
    int64_t line = 0;              ///< From 1.
    uint32_t first = 0, last = 0;  ///< Columns; 0 for the whole line.
    const char* card = "";
    CStringMB name;  ///< Of the field; empty when it is none.
    CString text;    ///< One sentence.
};

/// More fields than this are not listed: some hundred runs with profiles of their own.
constexpr uint32_t mostTape5Fields = 200'000;

/// Reads a deck from the file's position and lists its fields in order. False, with a diagnostic, for what
/// CModtranTape5File::Load does not read, and for more fields than the limit; `fields` then holds those in front.
QV_API bool ListTape5Fields(TSharedPtr<IFile> file, TArray<TAPE5_FIELD>& fields);

/// Reads a deck likewise and lists what is doubtful in it, by line. False for what cannot be read.
QV_API bool LintTape5(TSharedPtr<IFile> file, TArray<TAPE5_WARNING>& warnings);

/// Sets the value of a field by its name, in either case. Setting a count makes its list longer or shorter. Beside the
/// names on the cards there are SURFACE and ALBEDO behind SURREF, AEROSOLMODELTYPE and AEROSOLMODEL behind IHA1.
/// @return  False, with a diagnostic, for an unknown name, an element that is not there, or a value of another kind.
QV_API bool SetTape5Field(CModtranTape5File::RUN& run, const CStringMB& name, const CStringMB& value);

/// The value of a field by its name, as TAPE5_FIELD has it; false for an unknown name. `card` is the card that it
/// stands on, or "" where the run has no such card.
QV_API bool GetTape5Field(const CModtranTape5File::RUN& run, const CStringMB& name, CStringMB& value, CStringMB& card);

}  // namespace qv
