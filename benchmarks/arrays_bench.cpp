// Typed arrays beside plain loops compiled for the machine, OpenCV, Eigen, NumPy (numpy_rows.py) and a copy of as many
// bytes: a frame of 640 x 512, which the caches hold, and 16 M elements, which they do not.
#include "rows.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <memory>

#include "peers/peers.h"
#include "qv/temperature.h"

namespace {

using namespace qv;
using peers::Operation;
using Buffer = TSharedPtr<ITypedBuffer>;

struct Size {
    const char* name;
    uint32_t elements;
};
constexpr Size sizes[] = {{"640 x 512", 640 * 512}, {"16 M", 1 << 24}};

std::string nameOf(EDataType type) {
    constexpr const char* names[] = {"int8",   "uint8", "int16",  "uint16", "int32",
                                     "uint32", "int64", "uint64", "flt32",  "flt64"};
    return names[static_cast<int>(type)];
}

/// 12 bits that hash the index, and a quarter where the type has fractions; other hashes with other factors.
Buffer input(EDataType type, uint32_t count, uint32_t factor) {
    Buffer made = AllocTypedBuffer(type, count);
    const double fraction = type >= EDataType::flt32 ? 0.25 : 0.0;
    for (uint32_t i = 0; i < count; ++i) made->setAt(i, ((i * factor) >> 20) + fraction);
    return made;
}
constexpr uint32_t oneFactor = 2654435761u, otherFactor = 2246822519u;

void copyElements(const Buffer& to, const Buffer& from) { std::memcpy(to->data(), from->data(), from->sizeInBytes()); }
bool same(const Buffer& a, const Buffer& b) { return std::memcmp(a->data(), b->data(), a->sizeInBytes()) == 0; }

/// A job that changes `target`: what this starts from, and what it holds after one run, both made when first needed.
struct Job {
    std::function<Buffer()> makeStart;
    std::function<Buffer(const Buffer& start)> makeExpected;
    size_t bytes = 0;  ///< read and written by a run
    Buffer start, expected, target;
    double answer = 0.0;

    void prepare() {
        if (start) return;
        start = makeStart();
        expected = makeExpected(start);
        target = AllocTypedBuffer(expected->type(), expected->size());
        for (uint32_t i = 0; i < expected->size(); ++i) answer += expected->getAt(i);
    }
};
using JobPtr = std::shared_ptr<Job>;

/// One contestant of the job; run(target) does it.
template <class Run>
void addContestant(const std::string& name, const std::string& contestant, JobPtr job, Run run) {
    bench::add(name, contestant, [=, checked = false](benchmark::State& state) mutable {
        job->prepare();
        copyElements(job->target, job->start);
        if (!checked) {
            run(job->target);
            checked = same(job->target, job->expected);
            if (!checked) return state.SkipWithError("other elements than the rule gives");
        }
        for (auto _ : state) {
            run(job->target);
            benchmark::ClobberMemory();
        }
        bench::setBytes(state, job->bytes);
        bench::setAnswer(state, job->answer);
        if (contestant == "qv") bench::setKernel(state);
    });
}

// Two operands
// ---------------------------------------------------------------------------------------------------------

void apply(Operation operation, STypedData dst, STypedData src, uint32_t count) {
    switch (operation) {
        case Operation::convert: return ConvertArray(dst, src, count);
        case Operation::lesser: return TypedMin(dst, src, count);
        case Operation::greater: return TypedMax(dst, src, count);
        case Operation::sum: return TypedSum(dst, src, count);
    }
}

/// The rule, one element after the other.
Buffer expectedOf(Operation operation, const Buffer& start, const Buffer& src) {
    Buffer made = AllocTypedBuffer(start->type(), start->size());
    for (uint32_t i = 0; i < start->size(); ++i) {
        made->setAt(i, src->getAt(i));
        const double d = start->getAt(i);
        const double c = made->getAt(i);
        if (operation == Operation::lesser) made->setAt(i, std::min(d, c));
        if (operation == Operation::greater) made->setAt(i, std::max(d, c));
        if (operation == Operation::sum) made->setAt(i, d + c);
    }
    return made;
}

void addOperation(Operation operation, EDataType dst, EDataType src, const Size& size) {
    constexpr const char* verbs[] = {"convert", "min with", "max with", "sum with"};
    const std::string name =
        std::string(verbs[static_cast<int>(operation)]) + ' ' + nameOf(src) + " to " + nameOf(dst) + ", " + size.name;
    const uint32_t count = size.elements;
    const auto job = std::make_shared<Job>();
    const auto source = std::make_shared<Buffer>();
    job->makeStart = [=] {
        *source = input(src, count, oneFactor);
        return input(dst, count, otherFactor);
    };
    job->makeExpected = [=](const Buffer& start) { return expectedOf(operation, start, *source); };
    const size_t written = size_t{DataTypeSize(dst)} * count * (operation == Operation::convert ? 1 : 2);
    job->bytes = size_t{DataTypeSize(src)} * count + written;

    addContestant(name, "qv", job,
                  [=](const Buffer& target) { apply(operation, target->typedData(), (*source)->typedData(), count); });
    const auto addLoop = [&](const char* contestant, peers::Loop loop) {
        if (loop == nullptr) return;
        addContestant(name, contestant, job,
                      [=](const Buffer& target) { loop(target->data(), (*source)->data(), count); });
    };
    addLoop("native", peers::nativeLoop(operation, dst, src));
#ifdef QV_PEER_EIGEN
    addLoop("eigen", peers::eigenLoop(operation, dst, src));
#endif
#ifdef QV_PEER_OPENCV
    addLoop("opencv", peers::opencvLoop(operation, dst, src));
#endif
    bench::addMemcpy(name, job->bytes);
}

const bool operations = [] {
    using enum EDataType;
    for (const Size& size : sizes) {
        for (const auto& [dst, src] : {std::pair(flt32, uint16), std::pair(uint16, flt32), std::pair(flt32, flt64),
                                       std::pair(uint16, uint8), std::pair(uint32, flt64), std::pair(int16, uint16)}) {
            addOperation(Operation::convert, dst, src, size);
        }
        for (const Operation operation : {Operation::lesser, Operation::greater, Operation::sum}) {
            addOperation(operation, flt32, uint16, size);
            addOperation(operation, uint16, flt32, size);
        }
    }
    return true;
}();

// Spans, divisions, temperatures
// ----------------------------------------------------------------------------------------

template <class T>
void addSpan(EDataType type, const Size& size) {
    const std::string name = "span of " + nameOf(type) + ", " + size.name;
    const uint32_t count = size.elements;
    const auto job = std::make_shared<Job>();
    const auto a = std::make_shared<Buffer>(), b = std::make_shared<Buffer>();
    job->makeStart = [=] {
        *b = input(type, count, otherFactor);
        *a = input(type, count, oneFactor);
        return AllocTypedBuffer(type, count);
    };
    job->makeExpected = [=](const Buffer&) {
        Buffer made = AllocTypedBuffer(type, count);
        for (uint32_t i = 0; i < count; ++i) made->setAt(i, std::fabs((*b)->getAt(i) - (*a)->getAt(i)));
        return made;
    };
    job->bytes = size_t{3} * DataTypeSize(type) * count;
    addContestant(name, "qv", job, [=](const Buffer& target) {
        TypedSpan(target->typedData(), (*a)->typedData(), (*b)->typedData(), count);
    });
    addContestant(name, "native", job, [=](const Buffer& target) {
        peers::native::span(static_cast<T*>(target->data()), static_cast<const T*>((*a)->data()),
                            static_cast<const T*>((*b)->data()), count);
    });
    bench::addMemcpy(name, job->bytes);
}

constexpr uint16_t divisor = 7;

void addDivision(const Size& size) {
    const std::string name = std::string("divide uint16 by 7, ") + size.name;
    const uint32_t count = size.elements;
    const auto job = std::make_shared<Job>();
    job->makeStart = [=] { return input(EDataType::uint16, count, oneFactor); };
    job->makeExpected = [=](const Buffer& start) {
        Buffer made = AllocTypedBuffer(EDataType::uint16, count);
        for (uint32_t i = 0; i < count; ++i) made->setAt(i, std::floor(start->getAt(i) / divisor));
        return made;
    };
    job->bytes = size_t{2} * sizeof(uint16_t) * count;
    addContestant(name, "qv", job, [=](const Buffer& target) { TypedDiv(target->typedData(), divisor, count); });
    addContestant(name, "native", job,
                  [=](const Buffer& target) { peers::native::divide(target->uint16(), divisor, count); });
    bench::addMemcpy(name, job->bytes);
}

void addTemperature(const Size& size) {
    const std::string name = std::string("Celsius to Fahrenheit, flt32, ") + size.name;
    const uint32_t count = size.elements;
    const auto job = std::make_shared<Job>();
    const auto source = std::make_shared<Buffer>();
    job->makeStart = [=] {
        *source = input(EDataType::flt32, count, oneFactor);
        return AllocTypedBuffer(EDataType::flt32, count);
    };
    job->makeExpected = [=](const Buffer&) {
        Buffer made = AllocTypedBuffer(EDataType::flt32, count);
        for (uint32_t i = 0; i < count; ++i) made->setAt(i, CMath::CelsiusToFahrenheit((*source)->getAt(i)));
        return made;
    };
    job->bytes = size_t{2} * sizeof(float) * count;
    addContestant(name, "qv", job, [=](const Buffer& target) {
        CMath::ConvertTemperature(target->typedData(), (*source)->typedData(), count, ETempType::Celsius,
                                  ETempType::Fahrenheit);
    });
    addContestant(name, "native", job, [=](const Buffer& target) {
        peers::native::celsiusToFahrenheit(target->flt32(), (*source)->flt32(), count);
    });
    bench::addMemcpy(name, job->bytes);
}

const bool others = [] {
    for (const Size& size : sizes) {
        addSpan<uint16_t>(EDataType::uint16, size);
        addSpan<float>(EDataType::flt32, size);
        addDivision(size);
        addTemperature(size);
    }
    return true;
}();

// Smallest and largest
// --------------------------------------------------------------------------------------------------

/// run(buffer, min, max) does it.
template <class Run>
void addMinMax(const std::string& name, const char* contestant, EDataType type, uint32_t count, Run run) {
    bench::add(name, contestant, [=, data = Buffer()](benchmark::State& state) mutable {
        if (!data) data = input(type, count, oneFactor);
        double min = -1.0, max = -1.0;
        run(data, min, max);
        const double fraction = type == EDataType::flt32 ? 0.25 : 0.0;
        if (min != fraction || max != 4095.0 + fraction) return state.SkipWithError("other bounds");
        for (auto _ : state) {
            run(data, min, max);
            benchmark::DoNotOptimize(max);
        }
        bench::setBytes(state, data->sizeInBytes());
        bench::setAnswer(state, min + max);
        if (std::string(contestant) == "qv") bench::setKernel(state);
    });
}

template <class T>
void addMinMax(EDataType type, const Size& size) {
    const std::string name = "min and max of " + nameOf(type) + ", " + size.name;
    const uint32_t count = size.elements;
    addMinMax(name, "qv", type, count, [=](const Buffer& data, double& min, double& max) {
        T low{}, high{};
        MinMax(data->typedData(), count, low, high);
        min = low, max = high;
    });
    addMinMax(name, "native", type, count, [=](const Buffer& data, double& min, double& max) {
        T low{}, high{};
        peers::native::minMax(static_cast<const T*>(data->data()), count, low, high);
        min = low, max = high;
    });
#ifdef QV_PEER_OPENCV
    addMinMax(name, "opencv", type, count, [=](const Buffer& data, double& min, double& max) {
        peers::opencvMinMax(type, data->data(), count, min, max);
    });
#endif
    bench::addMemcpy(name, size_t{DataTypeSize(type)} * count);
}

const bool bounds = [] {
    for (const Size& size : sizes) {
        addMinMax<uint16_t>(EDataType::uint16, size);
        addMinMax<float>(EDataType::flt32, size);
    }
    return true;
}();

}  // namespace

BENCHMARK_MAIN();
