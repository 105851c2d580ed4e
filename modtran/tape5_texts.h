// Texts on cards that stand for several values: SURREF, H2OSTR, O3STR, CBRDF.
#pragma once

#include <cstdint>
#include <string_view>

#include "modtran/tape5_table.h"

namespace qv::tape5 {

CStringMB surref(const RUN& run, Index);
bool setSurref(RUN& run, Index, std::string_view text);
CStringMB water(const RUN& run, Index);
bool setWater(RUN& run, Index, std::string_view text);
CStringMB ozone(const RUN& run, Index);
bool setOzone(RUN& run, Index, std::string_view text);
/// The keyword of a reflectance model, or its number where it has none.
CStringMB brdf(const RUN& run, Index);
bool setBrdf(RUN& run, Index, std::string_view text);
/// How many parameters a reflectance model reads.
uint32_t brdfParameters(int32_t model);
/// The number of a model that card 4B1 can name.
bool isReflectanceModel(int32_t number);

inline constexpr DerivedText surrefText{surref, setSurref};
inline constexpr DerivedText waterText{water, setWater};
inline constexpr DerivedText ozoneText{ozone, setOzone};
inline constexpr DerivedText brdfText{brdf, setBrdf};

}  // namespace qv::tape5
