// Numbers of about 106 bits: the unevaluated sum of two doubles, hi the rounded value and lo what it lacks. The
// error-free transforms are those of T. J. Dekker (Numer. Math. 18, 1971) and D. E. Knuth (TAOCP 2, 4.2.2). They hold
// only while the compiler neither reassociates nor contracts. V is double, or a vector of doubles that is worked on
// lane by lane.
#pragma once

namespace qv {

template <class V>
struct DoubleDouble {
    V hi{};
    V lo{};
};

using Double2 = DoubleDouble<double>;

/// a + b without error.
template <class V>
inline DoubleDouble<V> twoSum(V a, V b) {
    const V sum = a + b;
    const V bPart = sum - a;
    return {sum, (a - (sum - bPart)) + (b - bPart)};
}

/// The same for |a| >= |b|.
template <class V>
inline DoubleDouble<V> quickTwoSum(V a, V b) {
    const V sum = a + b;
    return {sum, b - (sum - a)};
}

/// The upper 26 bits and the rest. Overflows for |a| above 2^996.
template <class V>
inline DoubleDouble<V> split(V a) {
    const V scaled = a * 134217729.0;  // 2^27 + 1
    const V upper = scaled - (scaled - a);
    return {upper, a - upper};
}

/// a * b without error.
template <class V>
inline DoubleDouble<V> twoProduct(V a, V b) {
    const V product = a * b;
    const DoubleDouble<V> x = split(a);
    const DoubleDouble<V> y = split(b);
    return {product, ((x.hi * y.hi - product) + x.hi * y.lo + x.lo * y.hi) + x.lo * y.lo};
}

template <class V>
inline DoubleDouble<V> operator*(DoubleDouble<V> a, DoubleDouble<V> b) {
    const DoubleDouble<V> p = twoProduct(a.hi, b.hi);
    return quickTwoSum(p.hi, p.lo + (a.hi * b.lo + a.lo * b.hi));
}

template <class V>
inline DoubleDouble<V> operator*(DoubleDouble<V> a, V b) {
    const DoubleDouble<V> p = twoProduct(a.hi, b);
    return quickTwoSum(p.hi, p.lo + a.lo * b);
}

template <class V>
inline DoubleDouble<V> operator+(DoubleDouble<V> a, DoubleDouble<V> b) {
    const DoubleDouble<V> s = twoSum(a.hi, b.hi);
    const DoubleDouble<V> t = twoSum(a.lo, b.lo);
    const DoubleDouble<V> u = quickTwoSum(s.hi, s.lo + t.hi);
    return quickTwoSum(u.hi, u.lo + t.lo);
}

template <class V>
inline DoubleDouble<V> operator-(DoubleDouble<V> a, DoubleDouble<V> b) {
    return a + DoubleDouble<V>{-b.hi, -b.lo};
}

inline Double2 operator/(Double2 a, Double2 b) {
    const double first = a.hi / b.hi;
    const Double2 rest = a - b * first;
    const double second = rest.hi / b.hi;
    const Double2 last = rest - b * second;
    return quickTwoSum(first, second) + Double2{last.hi / b.hi, 0.0};
}

/// Adds to a running sum whose two parts are put in order only at its end: its error grows with the square of the
/// number of terms times 2^-106 (T. Ogita, S. Rump, S. Oishi, SIAM J. Sci. Comput. 26, 2005).
template <class V>
inline void accumulate(DoubleDouble<V>& sum, DoubleDouble<V> term) {
    const DoubleDouble<V> s = twoSum(sum.hi, term.hi);
    sum.hi = s.hi;
    sum.lo += s.lo + term.lo;
}

}  // namespace qv
