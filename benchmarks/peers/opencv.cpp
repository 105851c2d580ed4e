#include <opencv2/core.hpp>
#include <opencv2/core/utility.hpp>

#include "peers/peers.h"

namespace peers {

namespace {

/// One thread, as everybody else here.
const bool oneThread = (cv::setNumThreads(1), true);

int matType(qv::EDataType type) {
    switch (type) {
        case qv::EDataType::uint8: return CV_8UC1;
        case qv::EDataType::int16: return CV_16SC1;
        case qv::EDataType::uint16: return CV_16UC1;
        case qv::EDataType::flt32: return CV_32FC1;
        case qv::EDataType::flt64: return CV_64FC1;
        default: return -1;
    }
}

template <class T>
constexpr int typeOf = cv::traits::Type<T>::value;

template <class D, class S, Operation operation>
void loop(void* dst, const void* src, size_t count) {
    const auto n = static_cast<int>(count);
    cv::Mat d(1, n, typeOf<D>, dst);
    const cv::Mat s(1, n, typeOf<S>, const_cast<void*>(src));
    if constexpr (operation == Operation::convert) s.convertTo(d, typeOf<D>);
    if constexpr (operation == Operation::sum) cv::add(d, s, d, cv::noArray(), typeOf<D>);
    if constexpr (operation == Operation::lesser || operation == Operation::greater) {
        static cv::Mat converted;  // of the size of the last call
        s.convertTo(converted, typeOf<D>);
        operation == Operation::lesser ? cv::min(d, converted, d) : cv::max(d, converted, d);
    }
}

}  // namespace

Loop opencvLoop(Operation operation, qv::EDataType dst, qv::EDataType src) {
    return withTypes(dst, src, [operation]<class D, class S>(D*, S*) -> Loop {
        if constexpr (std::is_same_v<D, uint32_t>) {
            return nullptr;
        } else {
            switch (operation) {
                case Operation::convert: return loop<D, S, Operation::convert>;
                case Operation::lesser: return loop<D, S, Operation::lesser>;
                case Operation::greater: return loop<D, S, Operation::greater>;
                default: return loop<D, S, Operation::sum>;
            }
        }
    });
}

void opencvMinMax(qv::EDataType type, void* data, size_t count, double& min, double& max) {
    cv::minMaxLoc(cv::Mat(1, static_cast<int>(count), matType(type), data), &min, &max);
}

}  // namespace peers
