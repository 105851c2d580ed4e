// Names of pixel types, as programs show them and files store them, and what is done to the rows and columns of typed
// images: flip, interlace and deinterlace.
#pragma once

#include <cstdint>

#include "qv/api.h"
#include "qv/array.h"
#include "qv/string.h"
#include "qv/typed_data.h"

namespace qv {

// The registry ---------------------------------------------------------------------------------------------------
// One for the process. At the start it holds, in this order and with the element types of these names: "Int8",
// "UInt8", "Int16", "Grayscale (UInt16)", "Int32", "UInt32", "Int64", "UInt64", "Flt32", "Flt64", "RGB (24-Bit)",
// "RGB (48-Bit)". Names compare without regard to case. All functions may be called from any thread.

/// A name and the element type that it stands for.
struct SPixelType {
    CString name;
    EDataType type = EDataType::none;
};

/// Adds a name for an element type, behind those that are there. A type may have several names.
/// @return  Whether the name now stands for the type: true also when it did before; false when it stands for another
///          type, for an empty or null name, and for `none` and values outside the enumeration.
QV_API bool RegisterPixelType(const char16_t* name, EDataType type);
/// Takes a name away again; false when it is not there. The names of the start stay: false for them, too.
QV_API bool UnregisterPixelType(const char16_t* name);

/// The element type of a name; `none` when nobody registered it.
QV_API EDataType PixelTypeToDataType(const char16_t* name);
/// The first name of an element type; empty for `none` and values outside the enumeration.
QV_API CString DataTypeToPixelType(EDataType type);
/// All names in the order of their registration, as they are at this moment.
QV_API TArray<SPixelType> GetPixelTypes();

// Rows and columns -----------------------------------------------------------------------------------------------
// An image is width * height elements, row by row without gaps. All element types, the RGB ones among them; an image of
// type `none` or of a value outside the enumeration is left alone, as is a null one. Sizes are the caller's duty.

enum class EFlip : int32_t {
    rows = 1,     ///< Top and bottom change places.
    columns = 2,  ///< Left and right change places.
    both = 3,     ///< A turn by 180 degrees.
};

/// Mirrors an image in place.
QV_API void flip(STypedData image, uint32_t width, uint32_t height, EFlip what);

/// Which field comes first where the two stand one behind the other.
enum class EFieldOrder : int32_t {
    upperFirst = 0,  ///< Rows 0, 2, 4, ... of the frame.
    lowerFirst = 1,  ///< Rows 1, 3, 5, ...
};

/// Weaves a frame from its two fields. An odd frame has one row more in its upper field.
/// @param dst     The frame: width * height elements. Must not overlap `src`.
/// @param src     The two fields, one behind the other; of the same type, else nothing happens.
/// @param height  Rows of the frame.
QV_API void interlace(STypedData dst, STypedData src, uint32_t width, uint32_t height,
                      EFieldOrder order = EFieldOrder::upperFirst);
/// The inverse: separates a frame (`src`) into its two fields (`dst`).
QV_API void deinterlace(STypedData dst, STypedData src, uint32_t width, uint32_t height,
                        EFieldOrder order = EFieldOrder::upperFirst);

}  // namespace qv
