// What a store of settings holds, and what a form of it does not give back.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "qv/config_store.h"

namespace tool {

struct Setting {
    qv::CString path;
    qv::IConfigStore::SValue value;
};

/// The values of a store in its order, and how many sections they stand in, the store itself apart.
struct Contents {
    std::vector<Setting> values;
    uint32_t sections = 0;
};
/// What stands below a path; its own value does not count. Paths are those of the whole store.
Contents contentsOf(const qv::IConfigStore& store, const qv::CString& section = qv::CString());

/// Something that a form does not give back as it was set.
struct Loss {
    enum class Kind { type, emptyValue, space, valueOfSection, value, added };
    Kind kind;
    Setting setting;
};
/// Where `kept` differs from `wanted`.
std::vector<Loss> lossesOf(const qv::IConfigStore& wanted, const qv::IConfigStore& kept);
/// "does not keep the type Int32 of view/zoom"
std::string sentenceOf(const Loss& loss);
/// One word for programs.
std::string wordOf(Loss::Kind kind);

}  // namespace tool
