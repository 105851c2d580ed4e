// Planck's law over an axis. Part of the region of an instruction set; see loops.h.

namespace qv::kernels::QV_KERNEL_SET {

namespace {

/// The last elements of an array, filled up to a step.
struct Tail {
    double values[stepLength];
    Tail(const double* last, size_t count) {
        for (size_t i = 0; i < stepLength; ++i) values[i] = i < count ? last[i] : 1.0;
    }
};

/// Axis values whose fifth powers are no normal numbers, or that are not positive, are left to the runtime's pow.
inline void strengthsOfStep(const double* x, double* out) {
    const Step axis = loadStep(x);
    if (allBetween(axis, smallestBase, largestBase)) return storeStep(out, firstRadiationConstant / fifthPower(axis));
    double powers[stepLength];
    storeStep(powers, fifthPower(bounded(axis, smallestBase, largestBase)));
    for (size_t i = 0; i < stepLength; ++i) {
        const bool ordinary = x[i] > smallestBase && x[i] < largestBase;
        out[i] = firstRadiationConstant / (ordinary ? powers[i] : __builtin_pow(x[i], 5.0));
    }
}

void planckStrengths(const double* x, double* out, size_t count) {
    size_t i = 0;
    for (; i + stepLength <= count; i += stepLength) strengthsOfStep(x + i, out + i);
    if (i == count) return;
    Tail tail(x + i, count - i);
    strengthsOfStep(tail.values, tail.values);
    std::memcpy(out + i, tail.values, (count - i) * sizeof(double));
}

/// The order of operations decides about the last bit.
inline Step planck(const Step& x, const Step& strength, double kelvin, double emissivity) {
    return emissivity * strength * (1.0 / (exponential(secondRadiationConstant / (kelvin * x)) - 1.0));
}

void planckCurve(const double* x, const double* strengths, double* y, size_t count, double kelvin, double emissivity) {
    size_t i = 0;
    for (; i + stepLength <= count; i += stepLength) {
        storeStep(y + i, planck(loadStep(x + i), loadStep(strengths + i), kelvin, emissivity));
    }
    if (i == count) return;
    Tail tail(x + i, count - i);
    const Tail strength(strengths + i, count - i);
    storeStep(tail.values, planck(loadStep(tail.values), loadStep(strength.values), kelvin, emissivity));
    std::memcpy(y + i, tail.values, (count - i) * sizeof(double));
}

/// The lane before each: the last of `before`, then all but the last of `v`.
template <size_t... lane>
inline Doubles shiftedIn(Doubles before, Doubles v, std::index_sequence<lane...>) {
    return __builtin_shufflevector(before, v, (static_cast<int>(doubleLanes - 1 + lane))...);
}
inline Step shiftedIn(Doubles before, const Step& v) {
    constexpr auto lanes = std::make_index_sequence<doubleLanes>();
    return {{shiftedIn(before, v.v[0], lanes), shiftedIn(v.v[0], v.v[1], lanes), shiftedIn(v.v[1], v.v[2], lanes),
             shiftedIn(v.v[2], v.v[3], lanes)}};
}

/// The integral of some points, whose last terms are still to be added.
struct Band {
    double sum;
    Doubles last;  ///< Its last lane is the value at the last point.
    double terms[stepLength];

    /// One after the other, in the order of the axis.
    void addTerms(size_t count) {
        for (size_t i = 0; i < count; ++i) sum += terms[i];
    }
};

/// Takes in a step of points behind the first one; `before` are the axis values in front of each. The terms of the step
/// before are added only here: they are at hand by then, and while their additions wait for each other the processor
/// calculates the new ones.
inline void addStep(Band& band, const double* x, const double* before, const double* strengths, const double* response,
                    double kelvin, double emissivity) {
    const Step right = planck(loadStep(x), loadStep(strengths), kelvin, emissivity) * loadStep(response);
    const Step left = shiftedIn(band.last, right);
    const Step dx = loadStep(x) - loadStep(before);
    const Step terms = dx * (right - left) + dx * left;
    band.addTerms(stepLength);
    storeStep(band.terms, terms);
    band.last = right.v[abreast - 1];
}

double planckBand(const double* x, const double* strengths, const double* response, size_t count, double kelvin,
                  double emissivity) {
    if (count < 2) return 0.0;
    const Step first = planck(stepOf(x[0]), stepOf(strengths[0]), kelvin, emissivity);
    Band band{0.0, first.v[0] * response[0], {}};
    size_t i = 1;
    for (; i + stepLength <= count; i += stepLength) {
        addStep(band, x + i, x + i - 1, strengths + i, response + i, kelvin, emissivity);
    }
    const size_t rest = count - i;
    const Tail lastX(x + i, rest);
    const Tail before(x + i - 1, rest);
    const Tail lastStrengths(strengths + i, rest);
    const Tail lastResponse(response + i, rest);
    addStep(band, lastX.values, before.values, lastStrengths.values, lastResponse.values, kelvin, emissivity);
    band.addTerms(rest);
    return band.sum;
}

}  // namespace

}  // namespace qv::kernels::QV_KERNEL_SET
