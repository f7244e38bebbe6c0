// The check of an exception raised by the library: the class name, the
// text and the location an xexception carries.
#ifndef ZEL_TEST_RAISES_H
#define ZEL_TEST_RAISES_H

#include <typeinfo>

#include <gtest/gtest.h>

#include <zel/exception.h>

namespace zel_test {

// For `what` or `file`: not checked.
inline char const* const any = "<any>";

// f() raises an xexception (or a leaf of it) named `name` with the text
// `what`, from `file` and, when given, `line`; a null file means a plain
// throw, without location.
template <class F>
void expect_raised(F&& f, char const* name, char const* what, char const* file, int line = 0) {
    try {
        f();
        ADD_FAILURE() << "expected " << name << " \"" << (what ? what : "") << "\"";
    } catch (zel::xexception const& e) {
        EXPECT_STREQ(e.name(), name);
        if (what != any) {
            EXPECT_STREQ(e.what(), what);
        }
        if (file == nullptr) {
            EXPECT_EQ(e.file(), nullptr) << name << " is thrown directly";
            EXPECT_EQ(e.line(), -1);
        } else if (file != any) {
            EXPECT_STREQ(e.file(), file);
            if (line != 0) {
                EXPECT_EQ(e.line(), line) << (what ? what : name);
            } else {
                EXPECT_GT(e.line(), 0);
            }
        }
    }
}

// f() raises the plain exception "bad allocation": neither the bad_alloc
// class nor an xexception reaches the caller.
template <class F>
void expect_bad_allocation(F&& f) {
    try {
        f();
        ADD_FAILURE() << "expected \"bad allocation\"";
    } catch (zel::exception const& e) {
        EXPECT_EQ(typeid(e), typeid(zel::exception)) << "a plain exception, not a " << typeid(e).name();
        EXPECT_STREQ(e.what(), "bad allocation");
    }
}

} // namespace zel_test

#endif
