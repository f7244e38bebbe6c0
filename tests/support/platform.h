// Why a test cannot run on the target it was built for, in one place. A test
// that needs something a target lacks stays in the suite there and skips
// with the reason given here:
//
//   ZEL_REQUIRE(test_locales);   // at the top of the test body
//
// and code that only adapts asks zel_test::have(...) instead.
#ifndef ZEL_TEST_PLATFORM_H
#define ZEL_TEST_PLATFORM_H

#include <zel/ldx.h>

#include <cstdlib>

#include <gtest/gtest.h>

// The C library has POSIX regular expressions (<regex.h>).
#if defined(_WIN32)
#  define ZEL_TEST_HAVE_POSIX_REGEX 0
#else
#  define ZEL_TEST_HAVE_POSIX_REGEX 1
#endif

namespace zel_test {

enum class needs {
    // The named C locales the build generates with localedef (de_DE.UTF-8,
    // de_DE.ISO-8859-1, nl_NL.ISO-8859-1, en_US.UTF-8).
    test_locales,
    // The C library's POSIX regular expressions (regcomp, regexec).
    posix_regex,
    // Kernel objects (mutexes, semaphores, events) that the library makes on
    // the heap, so that a failed allocation makes their creation fail.
    kernel_objects_on_the_heap,
    // A replaced global operator new that also sees the requests the C++
    // runtime makes inside its own code (std::string's members).
    runtime_allocations_replaced,
    // A thread can be terminated at any point of its run: while it starts,
    // and inside the system's calls its lock calls make.
    termination_anywhere,
};

// Null when the target has it, otherwise why not.
inline char const* missing(needs what) noexcept {
#if defined(_WIN32)
    static_assert(!ZEL_TEST_HAVE_POSIX_REGEX, "one answer for both questions");
    switch (what) {
    case needs::test_locales:
        return "the test locales are glibc's, generated with localedef; the Windows C runtime "
               "has its own names and data for locales";
    case needs::posix_regex:
        return "the Windows C runtime has no POSIX regcomp/regexec to compare with";
    case needs::runtime_allocations_replaced:
        return "the C++ runtime is a DLL whose own calls to operator new do not reach the "
               "program's replacement";
    case needs::termination_anywhere:
        return "TerminateThread can stop a thread inside the system's own calls (a starting "
               "thread's DLL notifications under the loader lock, a wait, a semaphore release) "
               "and leave their state inconsistent";
    case needs::kernel_objects_on_the_heap:
        return "Windows makes kernel objects itself: no allocation of the program's can make "
               "their creation fail";
    }
    return nullptr;
#else
    (void)what;
    return nullptr;
#endif
}

inline bool have(needs what) noexcept { return missing(what) == nullptr; }

// True when the generated locale `name` can be used here (on targets with
// the test locales, false only when localedef was missing at build time).
inline bool have_test_locale(char const* name) {
    return have(needs::test_locales) && zel::ldx_manager::supports(name, 0);
}

// The generated locales live beside the build; the test programs point the C
// library at them before any test runs (ctest sets LOCPATH too).
struct locpath_setter {
    locpath_setter() {
#if !defined(_WIN32)
        setenv("LOCPATH", ZEL_TEST_LOCPATH, 0);
#endif
    }
};
inline locpath_setter const locpath;

} // namespace zel_test

#define ZEL_REQUIRE(what)                                                                     \
    if (char const* zel_why_ = ::zel_test::missing(::zel_test::needs::what))                 \
    GTEST_SKIP() << zel_why_

// Skips unless the generated locale `name` can be used here.
#define ZEL_REQUIRE_TEST_LOCALE(name)                                                         \
    ZEL_REQUIRE(test_locales);                                                                \
    if (!::zel::ldx_manager::supports(name, 0))                                               \
    GTEST_SKIP() << (name) << " was not generated (localedef missing?)"

#endif
