// Element types for the container tests: `counted` is a string that counts
// its live objects, so leaks and double destruction show, and can be told
// to throw on the n-th copy from now, so the containers' failure paths run.
#ifndef ZEL_TEST_COUNTED_H
#define ZEL_TEST_COUNTED_H

#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include <zel/exception.h>

#include "raises.h"

namespace zel_test {

class counted {
public:
    static inline int live = 0;
    // Copies left before one throws; negative: never.
    static inline int copies_until_throw = -1;

    counted() : value_("") { ++live; }
    counted(std::string v) : value_(std::move(v)) { ++live; }   // NOLINT: implicit on purpose
    counted(char const* v) : value_(v) { ++live; }               // NOLINT
    counted(counted const& other) : value_((tick(), other.value_)) { ++live; }
    counted& operator=(counted const& other) {
        tick();
        value_ = other.value_;
        return *this;
    }
    ~counted() {
        EXPECT_NE(value_, "<destroyed>") << "destroyed twice";
        value_ = "<destroyed>";
        --live;
    }

    std::string const& value() const { return value_; }
    friend bool operator==(counted const& a, counted const& b) { return a.value_ == b.value_; }
    friend bool operator!=(counted const& a, counted const& b) { return a.value_ != b.value_; }
    friend bool operator<(counted const& a, counted const& b) { return a.value_ < b.value_; }
    friend std::ostream& operator<<(std::ostream& os, counted const& c) { return os << c.value_; }

private:
    static void tick() {
        if (copies_until_throw == 0) {
            copies_until_throw = -1;
            throw std::runtime_error("copy failed");
        }
        if (copies_until_throw > 0)
            --copies_until_throw;
    }

    std::string value_;
};

// Runs f with the n-th counted copy from now throwing (never, when n is
// negative); true when that copy's error came out of f.
template <class F>
bool throws_on_copy(int n, F f) {
    counted::copies_until_throw = n;
    bool threw = false;
    try {
        f();
    } catch (std::runtime_error const&) {
        threw = true;
    }
    counted::copies_until_throw = -1;
    return threw;
}

// Checks at the end of a test that every counted object it made is gone.
class no_leaks {
public:
    no_leaks() : before_(counted::live) {}
    ~no_leaks() {
        counted::copies_until_throw = -1;
        EXPECT_EQ(counted::live, before_) << "counted objects leaked or destroyed twice";
    }
    no_leaks(no_leaks const&) = delete;
    no_leaks& operator=(no_leaks const&) = delete;

private:
    int before_;
};

// Runs f, which must raise the library's container_error with message
// `text` through the throw path, from `file` and, when given, `line`.
template <class F>
void expect_container_error(F f, char const* text, char const* file, int line = 0) {
    expect_raised(f, "container_error", text, file, line);
}

// Breaks one field of c's engine (sets it to `bad`), expects c.check() to
// report `text` from `file`:`line`, and mends the field, so the next fault
// and the destructor meet a sound structure.
template <class C, class Field, class Bad>
void expect_check_fault(C const& c, Field& field, Bad bad, char const* text, char const* file, int line) {
    Field const was = field;
    field = bad;
    expect_container_error([&] { c.check(); }, text, file, line);
    field = was;
}

} // namespace zel_test

#endif
