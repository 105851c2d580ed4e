// The table of the kernels of an instruction set. Part of its region; see loops.h.

namespace qv::kernels::QV_KERNEL_SET {

namespace {

constexpr bool handled(size_t tag) { return tag != tagUInt64; }

template <size_t d, size_t s>
constexpr void fillPair(KernelTable& table) {
    if constexpr (handled(d) && handled(s)) {
        using D = Element<d>;
        using S = Element<s>;
        static_assert(std::is_same_v<SpanType<D, S>, uint32_t> == hasNarrowSpan(d, s));
        table.convert[d][s] = convertElements<D, S>;
        table.min[d][s] = binaryLoop<D, CanonicalSource<D, S>, Lesser>;
        table.max[d][s] = binaryLoop<D, CanonicalSource<D, S>, Greater>;
        table.sum[d][s] = binaryLoop<CanonicalTarget<D, S>, CanonicalSource<D, S>, Sum>;
        table.span[d][s] = spanLoop<D, S>;
    }
}

template <size_t s, size_t... t>
constexpr void fillMinMax(KernelTable& table, std::index_sequence<t...>) {
    ((table.minMax[t][s] = minMaxLoop<std::tuple_element_t<t, MinMaxTypes>,
                                      CanonicalSource<std::tuple_element_t<t, MinMaxTypes>, Element<s>>>),
     ...);
}

template <size_t s, size_t... d>
constexpr void fillColumn(KernelTable& table, std::index_sequence<d...>) {
    (fillPair<d, s>(table), ...);
    if constexpr (handled(s)) {
        fillMinMax<s>(table, std::make_index_sequence<std::tuple_size_v<MinMaxTypes>>());
        table.div[s] = divLoop<Element<s>>;
        table.convertSpan[s] = convertSpanLoop<Element<s>>;
    }
}

template <size_t... s>
constexpr KernelTable makeTable(const char* name, std::index_sequence<s...> all) {
    KernelTable table{};
    table.name = name;
    table.features = QV_KERNEL_FEATURES;
    (fillColumn<s>(table, all), ...);
    table.affine[0] = {affineLoop<float, false>, affineLoop<float, true>};
    table.affine[1] = {affineLoop<double, false>, affineLoop<double, true>};
    table.stream = streamLoop;
    table.endStream = endStream;
    table.planckStrengths = planckStrengths;
    table.planckCurve = planckCurve;
    table.planckBand = planckBand;
    table.horner = hornerLoop;
    table.lookUp = {lookUpLoop<uint16_t>, lookUpLoop<int16_t>};
    table.countOutside = {countOutsideLoop<uint16_t>, countOutsideLoop<int16_t>};
    return table;
}

}  // namespace

#define QV_KERNEL_QUOTE_EXPANDED(name) #name
#define QV_KERNEL_QUOTE(name) QV_KERNEL_QUOTE_EXPANDED(name)
constinit const KernelTable table = makeTable(QV_KERNEL_QUOTE(QV_KERNEL_SET), std::make_index_sequence<typeCount>());

}  // namespace qv::kernels::QV_KERNEL_SET
