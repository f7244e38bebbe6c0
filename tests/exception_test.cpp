// The exception families, the throw path's slicing, the report text and the
// handler functions.
#include <zel/exception.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <typeinfo>

#include <gtest/gtest.h>

#include "support/raises.h"

namespace {

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

// Throws `e` through zel_throw and returns what a handler receives.
template <class E>
zel::xexception thrown(E const& e, char const* file, int line) {
    try {
        zel::zel_throw(e, file, line);
    } catch (zel::xexception const& x) {
        EXPECT_EQ(typeid(x), typeid(zel::xexception)) << "a handler of the leaf class would see it";
        return x;
    }
    ADD_FAILURE() << "nothing thrown";
    return zel::xexception();
}

std::string report(zel::xexception const& e) {
    CaptureStderr();
    e.print();
    return GetCapturedStderr();
}

// An xexception with every field chosen, name included.
struct any_xexception : zel::xexception {
    any_xexception(char const* name, char const* what, char const* file, int line)
        : xexception(name, what, file, line) {}
};

TEST(Exception, TextsFieldsAndAssignment) {
    zel::exception with("text"), without;
    EXPECT_STREQ(with.what(), "text");
    EXPECT_STREQ(without.what(), "");
    EXPECT_STREQ(static_cast<std::exception const&>(with).what(), "text");

    zel::xexception e;
    EXPECT_STREQ(e.name(), "xexception");
    EXPECT_EQ(static_cast<std::exception const&>(e).what(), nullptr)
        << "what() is the message pointer, even through the base";
    EXPECT_EQ(e.file(), nullptr);
    EXPECT_EQ(e.line(), -1);
    zel::xexception m("message");
    EXPECT_STREQ(m.name(), "xexception");
    EXPECT_STREQ(m.what(), "message");

    static char const text[] = "borrowed";
    zel::xexception copy(zel::invalid_argument(text, text, 1));
    EXPECT_EQ(copy.what(), text) << "texts are borrowed, not copied";
    EXPECT_EQ(copy.file(), text);

    zel::out_of_range leaf("what", "a.cpp", 1);
    leaf.set_location("b.cpp", 2);
    zel::xexception x("x");
    x = leaf;
    EXPECT_STREQ(x.name(), "out_of_range");
    EXPECT_STREQ(x.what(), "what");
    EXPECT_STREQ(x.file(), "b.cpp");
    EXPECT_EQ(x.line(), 2);
    zel::xexception& self = x;
    x = self;
    EXPECT_STREQ(x.name(), "out_of_range");
    EXPECT_STREQ(x.what(), "what");
}

TEST(Exception, EveryLeafCarriesItsNameAndPlaceInTheTree) {
    struct row {
        zel::xexception const& e;
        char const* name;
        bool is_logic;
    };
    // Temporaries bound to the rows' references live as long as the array.
    row const rows[] = {
        {zel::logic_error(), "logic_error", true},       {zel::container_error(), "container_error", true},
        {zel::domain_error(), "domain_error", true},     {zel::invalid_argument(), "invalid_argument", true},
        {zel::length_error(), "length_error", true},     {zel::out_of_range(), "out_of_range", true},
        {zel::sync_error(), "sync_error", true},         {zel::runtime_error(), "runtime_error", false},
        {zel::overflow_error(), "overflow_error", false}, {zel::range_error(), "range_error", false},
    };
    for (row const& r : rows) {
        EXPECT_STREQ(r.e.name(), r.name);
        EXPECT_EQ(r.e.what(), nullptr) << r.name;
        EXPECT_EQ(r.e.file(), nullptr) << r.name;
        EXPECT_EQ(r.e.line(), -1) << r.name;
        EXPECT_EQ(dynamic_cast<zel::logic_error const*>(&r.e) != nullptr, r.is_logic) << r.name;
        EXPECT_EQ(dynamic_cast<zel::runtime_error const*>(&r.e) != nullptr, !r.is_logic) << r.name;
    }
}

// zel_throw raises a copy of class xexception (a handler of the leaf class
// never sees it) with the location it was given, null and -1 included; a
// plain exception keeps only its text; ZEL_THROW passes the source line.
TEST(Exception, ZelThrowSlicesToXexceptionAndSetsTheLocation) {
    zel::xexception leaf = thrown(zel::out_of_range(), "src/bitset.cpp", 41);
    EXPECT_STREQ(leaf.name(), "out_of_range");
    EXPECT_STREQ(leaf.file(), "src/bitset.cpp");
    EXPECT_EQ(leaf.line(), 41);
    zel::xexception x = thrown(zel::container_error("msg", "old.cpp", 5), nullptr, -1);
    EXPECT_STREQ(x.name(), "container_error");
    EXPECT_STREQ(x.what(), "msg");
    EXPECT_EQ(x.file(), nullptr);
    EXPECT_EQ(x.line(), -1);
    EXPECT_THROW(zel::zel_throw(zel::sync_error("s"), "f", 1), std::exception);
    zel_test::expect_bad_allocation([] { zel::zel_throw(zel::bad_alloc(), "src/memory.cpp", 9); });
    int line = 0;
    try {
        line = __LINE__ + 1;
        ZEL_THROW(zel::range_error("r"));
    } catch (zel::xexception const& e) {
        EXPECT_EQ(e.line(), line);
        EXPECT_STREQ(e.file(), __FILE__);
        EXPECT_STREQ(e.name(), "range_error");
    }
}

TEST(Exception, ReportIsExactByteForByte) {
    std::string const head = "!!! EXCEPTION THROWN !!!\n\n";
    EXPECT_EQ(report(zel::out_of_range(nullptr, "src/bitset.cpp", 77)),
              head + "--> Type: out_of_range\n--> From: 'src/bitset.cpp', line 77\n");
    EXPECT_EQ(report(zel::invalid_argument("Invalid pool chunk size", "src/fspool.cpp", 0)),
              head + "--> Type: invalid_argument\n--> What: Invalid pool chunk size\n"
                     "--> From: 'src/fspool.cpp', line 0\n");
    EXPECT_EQ(report(zel::runtime_error("m", "f.cpp", -1)),
              head + "--> Type: runtime_error\n--> What: m\n--> From: 'f.cpp'\n");
    EXPECT_EQ(report(zel::xexception("no file")), head + "--> Type: xexception\n--> What: no file\n");
    EXPECT_EQ(report(any_xexception(nullptr, nullptr, nullptr, 3)), head);
    EXPECT_EQ(report(any_xexception(nullptr, "w", nullptr, 3)), head + "--> What: w\n");
}

// Exposes _Doraise, which the runtime-mirroring classes keep protected.
template <class E>
struct raiser : E {
    using E::E;
    void raise() const { this->_Doraise(); }
};

// True when `e` raises a copy of exactly class Caught with e's text.
template <class Caught, class E>
bool raises_as(E const& e) {
    try {
        e.raise();
    } catch (Caught const& c) {
        return typeid(c) == typeid(Caught) && std::strcmp(c.what(), e.what()) == 0;
    } catch (...) {
    }
    return false;
}

// A mirror's default text, and _Doraise raising a copy of its own class.
template <class E>
void expect_mirror(char const* text) {
    EXPECT_STREQ(E().what(), text);
    EXPECT_TRUE(raises_as<E>(raiser<E>())) << text;
}

TEST(Exception, RuntimeMirrorsHaveTheirTextsAndRaiseThemselves) {
    expect_mirror<zel::bad_exception>("bad exception");
    expect_mirror<zel::bad_alloc>("bad allocation");
    expect_mirror<zel::bad_cast>("bad cast");
    expect_mirror<zel::bad_typeid>("bad typeid");
    EXPECT_STREQ(zel::bad_alloc("other").what(), "other");
    // Inherited from bad_typeid, so it raises a bad_typeid copy.
    raiser<zel::__non_rtti_object> nro("no rtti");
    EXPECT_STREQ(nro.what(), "no rtti");
    EXPECT_TRUE(raises_as<zel::bad_typeid>(nro)) << "a bad_typeid copy, with the text";
}

void throwing_unexpected() { throw 42; }

TEST(Exception, UnexpectedCallsTheInstalledHandler) {
    zel::unexpected_handler original = zel::set_unexpected(&throwing_unexpected);
    EXPECT_NE(original, nullptr);
    EXPECT_THROW(zel::unexpected(), int);
    EXPECT_EQ(zel::set_unexpected(original), &throwing_unexpected);
    // Null installs the default handler, which terminates.
    zel::set_unexpected(nullptr);
    EXPECT_EQ(zel::set_unexpected(original), original);
}

[[noreturn]] void exit_three() {
    std::fputs("custom terminate\n", stderr);
    std::_Exit(3);
}

TEST(ExceptionDeathTest, TerminateRunsTheInstalledHandler) {
    for (void (*f)() : std::initializer_list<void (*)()>{&zel::terminate, &zel::unexpected})
        EXPECT_EXIT((zel::set_terminate(&exit_three), f()), testing::ExitedWithCode(3), "custom terminate");
    zel::terminate_handler mine = &exit_three;
    zel::terminate_handler before = zel::set_terminate(mine);
    EXPECT_EQ(zel::set_terminate(before), mine);
}

} // namespace
