#include "modtran/tape5_texts.h"

#include "core/text.h"
#include "modtran/tape5_number.h"

namespace qv::tape5 {

namespace {

enum : int32_t { surfaceAlbedo, surfaceBrdf, surfaceLamber };

/// A reflectance model: its number, its keyword where it is one of those that are written, its parameters.
struct Model {
    int32_t number;
    std::string_view keyword;
    bool isKeyword;
    uint32_t parameters;
};
constexpr Model models[] = {
    {2, "walthall", true, 4}, {51, "walthall(a)", true, 4},      {11, "sine-walthall", true, 4},
    {5, "rahman", true, 3},   {52, "sine-walthall(a)", true, 4}, {6, "roujean", true, 3},
    {12, "ross-li", true, 5}, {10, "pinty-verstraete", true, 4}, {4, "hapke", false, 4},
};

const Model* modelOf(int32_t number) {
    for (const Model& model : models) {
        if (model.number == number) return &model;
    }
    return nullptr;
}

/// "g 2.0", "a 3000.", "1.5", "+g3.0"; `unlimited` is null where a plus sign has no meaning.
bool setColumn(std::string_view text, char& unit, double& column, char* unlimited) {
    char plus = ' ', letter = ' ';
    if (unlimited != nullptr && !text.empty() && text[0] == '+') {
        plus = '+';
        text = trimmed(text.substr(1));
    }
    if (!text.empty() && text::isLetter(text[0])) {
        letter = text::toLower(text[0]);
        text.remove_prefix(1);
    }
    if ((letter != ' ' && letter != 'a' && letter != 'g') || !readReal(text, 0, column)) return false;
    unit = letter;
    if (unlimited != nullptr) *unlimited = plus;
    return true;
}

}  // namespace

CStringMB surref(const RUN& run, Index) { return CModtranTape5File::FormatSurfaceReflectance(run.surface, run.albedo); }

bool setSurref(RUN& run, Index, std::string_view text) {
    const char first = text.empty() ? ' ' : text::toUpper(text[0]);
    if (first == 'B' || first == 'L') {
        run.surface = first == 'B' ? surfaceBrdf : surfaceLamber;
        return true;
    }
    double albedo = 0.0;
    if (!readReal(text, 0, albedo)) return false;
    run.surface = surfaceAlbedo;
    run.albedo = albedo;
    return true;
}

CStringMB water(const RUN& run, Index) {
    return CModtranTape5File::FormatVerticalColumnType(run.h2oUnit, run.h2o, run.h2oUnlimited);
}
bool setWater(RUN& run, Index, std::string_view text) {
    return setColumn(text, run.h2oUnit, run.h2o, &run.h2oUnlimited);
}
CStringMB ozone(const RUN& run, Index) { return CModtranTape5File::FormatVerticalColumnType(run.o3Unit, run.o3); }
bool setOzone(RUN& run, Index, std::string_view text) { return setColumn(text, run.o3Unit, run.o3, nullptr); }

CStringMB brdf(const RUN& run, Index x) {
    const int32_t number = run.surfaces[x.i].brdf;
    const Model* model = modelOf(number);
    return model != nullptr && model->isKeyword ? CStringMB(model->keyword) : CStringMB::FromInt(number);
}

bool setBrdf(RUN& run, Index x, std::string_view text) {
    text = trimmed(text.substr(0, text.find('!')));
    int32_t number = 0;
    const bool isNumber = !text.empty() && readInteger(text, number);
    for (const Model& model : models) {
        if (isNumber ? model.number != number : text::compareNoCase(model.keyword, text) != 0) continue;
        run.surfaces[x.i].brdf = model.number;
        return true;
    }
    return false;
}

bool isReflectanceModel(int32_t number) { return modelOf(number) != nullptr; }

uint32_t brdfParameters(int32_t number) {
    const Model* model = modelOf(number);
    return model == nullptr ? 5 : model->parameters;
}

}  // namespace qv::tape5

namespace qv {

CStringMB CModtranTape5File::FormatSurfaceReflectance(int32_t surface, double albedo) {
    switch (surface) {
        case tape5::surfaceAlbedo: return CStringMB::FromFormat("%7.2f", albedo);
        case tape5::surfaceBrdf: return "BRDF";
        case tape5::surfaceLamber: return "LAMBER";
        default: return "";
    }
}

CStringMB CModtranTape5File::FormatVerticalColumnType(char unit, double column, char unlimited) {
    const bool isUnlimited = unlimited == '+';
    if (!isUnlimited && unlimited != ' ') return "";
    switch (unit) {
        case 'a':
        case 'A': return CStringMB::FromFormat(isUnlimited ? "+a%8.3f" : "a %8.3f", column);
        case 'g':
        case 'G': return CStringMB::FromFormat(isUnlimited ? "+g%8.3f" : "g %8.3f", column);
        case ' ':
            if (isUnlimited) return CStringMB::FromFormat("+%9.5f", column);
            return column == 0.0 ? CStringMB("          ") : CStringMB::FromFormat("%10.5f", column);
        default: return "";
    }
}

}  // namespace qv
