// Callbacks: what is stored, the set test, and calls through the typed
// builders and initiator0.
#include <zel/callback.h>

#include <gtest/gtest.h>

namespace {

int plain_calls = 0;
void plain() { ++plain_calls; }
int plain_with_result() { return ++plain_calls; }

struct counter {
    void add() { ++value; }
    int peek() const {
        ++peeks;
        return value;
    }
    int value = 0;
    mutable int peeks = 0;
};

TEST(Callback, EmptyIsNotSetAndCallsNothing) {
    zel::callback_base base;
    EXPECT_FALSE(base.is_set());
    zel::callback0 none;
    zel::callback0 null_pointer = nullptr;
    EXPECT_FALSE(none);
    EXPECT_FALSE(null_pointer);
    none();
    zel::initiator0 empty;
    EXPECT_FALSE(empty);
    int object = 0;
    EXPECT_TRUE(zel::callback_base(&object, nullptr, 0).is_set()) << "an object alone makes it set";
}

TEST(Callback, StoresAPlainFunctionInTheFirstWord) {
    zel::callback0 cb = zel::make_callback(&plain);
    EXPECT_TRUE(cb);
    EXPECT_EQ(cb.object(), nullptr);
    EXPECT_EQ(cb.first_word(), reinterpret_cast<void const*>(&plain));
    plain_calls = 0;
    cb();
    zel::callback0 copy = cb;
    copy();
    zel::make_callback(&plain_with_result)();
    EXPECT_EQ(plain_calls, 3);
}

TEST(Callback, CallsAMemberFunctionOnItsObject) {
    counter c;
    zel::callback0 add = zel::make_callback(c, &counter::add);
    EXPECT_EQ(add.object(), &c);
    add();
    add();
    EXPECT_EQ(c.value, 2);
    zel::callback0 peek = zel::make_callback(static_cast<counter const&>(c), &counter::peek);
    peek();
    EXPECT_EQ(c.peeks, 1);
}

TEST(Initiator, HoldsAndReplacesItsCallback) {
    counter c;
    zel::initiator0 call(zel::make_callback(c, &counter::add));
    zel::initiator const& as_interface = call;
    EXPECT_TRUE(static_cast<bool>(as_interface));
    as_interface();
    zel::initiator0 copy(call);
    copy();
    EXPECT_EQ(c.value, 2);
    copy.reset(zel::make_callback(&plain));
    plain_calls = 0;
    copy();
    EXPECT_EQ(plain_calls, 1);
    EXPECT_EQ(c.value, 2);
    copy = call;
    copy();
    EXPECT_EQ(c.value, 3);
}

} // namespace
