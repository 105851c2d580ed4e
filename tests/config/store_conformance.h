// What every store has to do. A store takes part by a StoreKind in an INSTANTIATE_TEST_SUITE_P of its own test file.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>

#include "qv/config_store.h"

namespace qv::test {

/// One open store and the way to close it and open it anew.
class StoreUnderTest {
public:
    virtual ~StoreUnderTest() = default;
    virtual IConfigStore& store() = 0;
    /// Saves, closes and opens the store; what store() gave before is gone then.
    virtual void reopen() = 0;
};

/// How to make a store, empty, and where its saved form is bound to lose something.
struct StoreKind {
    std::string name;
    std::function<std::unique_ptr<StoreUnderTest>()> make;
    bool keepsTypes = false;            ///< GetType gives the type that was set, also after reopening.
    bool keepsEmptyText = true;         ///< A value may be "".
    bool keepsValuesOfSections = true;  ///< A value and a section may share a path.
    bool keepsSpaceAround = true;       ///< Text may begin and end with white space.
    bool keepsSlashAtEnd = true;        ///< The name of a section may end in a backslash.
    bool keepsNewSpelling = true;       ///< A name that was removed and set anew in another case has that case.
    /// Children come back in the order in which they were set; or that holds among values and among sections only, and
    /// the values stand first; or there is no order.
    enum { orderAsSet, orderValuesFirst, orderNone } order = orderAsSet;
};

class StoreConformance : public ::testing::TestWithParam<StoreKind> {
protected:
    void SetUp() override { m_under = GetParam().make(); }
    IConfigStore& store() { return m_under->store(); }
    void reopen() { m_under->reopen(); }

private:
    std::unique_ptr<StoreUnderTest> m_under;
};

inline std::string nameOfStore(const ::testing::TestParamInfo<StoreKind>& info) { return info.param.name; }

}  // namespace qv::test
