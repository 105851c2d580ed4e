#include "qv/nullable.h"

#include <gtest/gtest.h>

#include "qv/exception.h"

namespace qv {
namespace {

TEST(Nullable, ValueAndNothing) {
    nullable<int32_t> n;
    EXPECT_TRUE(n == null);
    EXPECT_TRUE(n.isNull());
    EXPECT_EQ(n.get(7), 7);
    EXPECT_FALSE(n.hasValue());
    n = 3;
    EXPECT_TRUE(n != null);
    EXPECT_EQ(n + 1, 4);
    const nullable<int32_t> copy(n);
    n = null;
    EXPECT_FALSE(n.isSet());
    n = copy;
    EXPECT_EQ(n.get(7), 3);
    *n.ptr(false) = 5;
    EXPECT_TRUE(n.isNull());
    *n.ptr(true) = 6;
    EXPECT_EQ(n.get(), 6);
}

template <class Call>
CString messageOf(Call call) {
    try {
        call();
    } catch (const CRuntimeErrorException& e) {
        return e.message();
    }
    return CString();
}

TEST(Nullable, WrongUseThrows) {
    nullable<double> n;
    EXPECT_EQ(messageOf([&] { n.get(); }), u"nullable value is not set.");
    EXPECT_EQ(messageOf([&] { (void)static_cast<double>(n); }), u"nullable value is not set.");
    *(&n) = 2.5;
    EXPECT_EQ(n.get(), 2.5);
    EXPECT_EQ(messageOf([&] { (void)&n; }), u"can't use & operator (set by pointer) because nullable value is set.");
    *n.out() = 3.5;
    EXPECT_EQ(n.get(), 3.5);
}

TEST(Exception, CarriesItsMessageAndTheOneBefore) {
    const CException inner(u"first");
    try {
        throw COutOfRangeException(u"grad °", &inner);
    } catch (const CLogicErrorException& e) {
        EXPECT_EQ(e.message(), u"grad °");
        EXPECT_EQ(e.what(), "grad \xC2\xB0");
        EXPECT_EQ(e.innerException()->message(), u"first");
        CException copy(e);
        EXPECT_EQ(copy.innerException(), &inner);
        EXPECT_EQ(copy.message(), u"grad °");
        const CException moved(std::move(copy));
        EXPECT_EQ(moved.innerException(), &inner);
        EXPECT_EQ(moved.message(), u"grad °");
    }
}

}  // namespace
}  // namespace qv
