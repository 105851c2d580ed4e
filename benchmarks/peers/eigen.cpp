#include <Eigen/Core>

#include "peers/peers.h"

namespace peers {

namespace {

template <class D, class S, Operation operation>
void loop(void* dst, const void* src, size_t count) {
    const auto n = static_cast<Eigen::Index>(count);
    Eigen::Map<Eigen::Array<D, Eigen::Dynamic, 1>> d(static_cast<D*>(dst), n);
    const Eigen::Map<const Eigen::Array<S, Eigen::Dynamic, 1>> s(static_cast<const S*>(src), n);
    if constexpr (operation == Operation::convert) d = s.template cast<D>();
    if constexpr (operation == Operation::lesser) d = d.min(s.template cast<D>());
    if constexpr (operation == Operation::greater) d = d.max(s.template cast<D>());
    if constexpr (operation == Operation::sum) d += s.template cast<D>();
}

}  // namespace

Loop eigenLoop(Operation operation, qv::EDataType dst, qv::EDataType src) {
    return withTypes(dst, src, [operation]<class D, class S>(D*, S*) -> Loop {
        switch (operation) {
            case Operation::convert: return loop<D, S, Operation::convert>;
            case Operation::lesser: return loop<D, S, Operation::lesser>;
            case Operation::greater: return loop<D, S, Operation::greater>;
            default: return loop<D, S, Operation::sum>;
        }
    });
}

}  // namespace peers
