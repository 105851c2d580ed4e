#include "measurement/rcal/propagation.h"

#include "measurement/rcal/document.h"

namespace qv {

namespace {

enum class Step {
    end,
    updatePoint,
    updatePointAndRefit,
    sortPoints,
    fitCoefficients,
    fitTempCoefficients,
    updateRange,
    updateLookup,
    updatePage,
    updateAllPages,
    loadSpectral,
    useTophatUnlessFile,  ///< the file's response did not come into force
    fallBackToTophat,     ///< the same, and the type asked for becomes the top-hat
    setupTophat,
    loadModtran,
    reloadModtran,
    loadAdditional,
};

struct Rule {
    RCalChange change;
    Step steps[4];
};

/// In the order of the enumeration. The steps of a row run from left to right.
constexpr Rule rules[] = {
    {RCalChange::pointTemperature, {Step::updatePoint, Step::sortPoints, Step::fitCoefficients, Step::updateRange}},
    {RCalChange::pointValue, {Step::updatePointAndRefit}},
    {RCalChange::pointEnabled, {Step::fitCoefficients, Step::updateRange}},
    {RCalChange::pointAdded, {Step::updatePoint, Step::sortPoints, Step::fitCoefficients}},
    {RCalChange::pointRemoved, {Step::fitCoefficients}},
    {RCalChange::pageAdded, {Step::updatePage}},
    {RCalChange::polyOrder, {Step::fitCoefficients}},
    {RCalChange::tempPolyOrder, {Step::fitTempCoefficients}},
    {RCalChange::lookup, {Step::updateLookup}},
    {RCalChange::autoRangeOn, {Step::updateRange}},
    {RCalChange::spectralFile, {Step::loadSpectral, Step::useTophatUnlessFile}},
    {RCalChange::tophat, {Step::setupTophat}},
    {RCalChange::modtranFile, {Step::loadModtran}},
    {RCalChange::modtranEnabled, {Step::reloadModtran, Step::updateAllPages}},
    {RCalChange::additionalResponse, {Step::loadAdditional}},
    {RCalChange::typeToFile, {Step::loadSpectral, Step::fallBackToTophat}},
    {RCalChange::typeToTophat, {Step::setupTophat}},
};

}  // namespace

int32_t CRCalFile::propagate(RCalChange change, int32_t page, int32_t index) {
    Document& d = *m_document;
    const Rule& rule = rules[static_cast<size_t>(change)];
    for (const Step step : rule.steps) {
        switch (step) {
            case Step::end: return index;
            case Step::updatePoint: UpdateCalPoint(page, index, false); break;
            case Step::updatePointAndRefit: UpdateCalPoint(page, index, true); break;
            case Step::sortPoints: index = SortCalPoints(page, index); break;
            case Step::fitCoefficients: UpdateCalPageCoeffs(page); break;
            case Step::fitTempCoefficients: UpdateCalPageTempCoeffs(page); break;
            case Step::updateRange: UpdateCalPageRange(page); break;
            case Step::updateLookup: UpdateCalPageLookup(page); break;
            case Step::updatePage: UpdateCalPage(page); break;
            case Step::updateAllPages: UpdateCalPage(-1); break;
            case Step::loadSpectral: LoadSpectralResponse(true); break;
            case Step::useTophatUnlessFile:
                if (d.spectralType == StoredResponseType::file && !d.fileInForce()) SetupTophat(true);
                break;
            case Step::fallBackToTophat:
                if (d.fileInForce()) break;
                d.spectralType = StoredResponseType::tophat;
                d.spectralEnabled = false;
                if (!d.response.rawX.empty()) SetupTophat(true);
                break;
            case Step::setupTophat: SetupTophat(true); break;
            case Step::loadModtran: LoadModtran(true); break;
            case Step::reloadModtran: LoadModtran(false); break;
            case Step::loadAdditional: LoadAdditionalSpectralResponse(index, true); break;
        }
    }
    return index;
}

}  // namespace qv
