// Callbacks: a callable stored without templates in the library. A
// callback_base holds either a plain function pointer or the raw bytes of a
// pointer to member function together with its object; a callback0 adds the
// invoker that calls what is stored with no arguments; an initiator is the
// interface that threads and container visits call, and initiator0 holds one
// callback0.
//
// The typed layer at the end builds a callback0 from a plain function or an
// object and member function:
//
//   zel::callback0 a = zel::make_callback(&tick);             // tick()
//   zel::callback0 b = zel::make_callback(counter, &counter::add);
//
// A callback does not own its object: the object must outlive every call.
#ifndef ZEL_CALLBACK_H
#define ZEL_CALLBACK_H

#include <cstring>
#include <type_traits>

#include <zel/config.h>

namespace zel {

class ZEL_API callback_base {
public:
    // Room for any pointer to member function.
    static constexpr unsigned buffer_size = 16;

    callback_base() noexcept : buffer_(), object_(nullptr) {}
    // With an object, `size` bytes of the pointer to member function at
    // `callable` are copied as they stand; without one, `callable` itself is
    // kept as a plain function pointer.
    callback_base(void const* object, void const* callable, unsigned size) noexcept
        : buffer_(), object_(object) {
        if (object) {
            if (callable)
                std::memcpy(buffer_, callable, size < buffer_size ? size : buffer_size);
        } else
            std::memcpy(buffer_, &callable, sizeof callable);
    }

    // Set when a function or an object is stored.
    bool is_set() const noexcept { return first_word() != nullptr || object_ != nullptr; }

    // What the typed layer stored, to call it back.
    void const* object() const noexcept { return object_; }
    void const* callable() const noexcept { return buffer_; }
    void const* first_word() const noexcept {
        void const* word;
        std::memcpy(&word, buffer_, sizeof word);
        return word;
    }

private:
    alignas(void*) unsigned char buffer_[buffer_size];
    void const* object_;
};

static_assert(!pointers_are_32_bits || sizeof(callback_base) == 20,
              "a callback holds 20 bytes on 32-bit targets");

class ZEL_API callback0 : public callback_base {
public:
    using invoker = void (*)(callback_base const&);

    callback0() noexcept : invoker_(nullptr) {}
    // Empty, whatever the pointer: lets a null pointer stand for "no callback".
    callback0(void const*) noexcept : invoker_(nullptr) {}

    explicit operator bool() const noexcept { return is_set(); }
    // Calls what is stored; an empty callback does nothing.
    void operator()() const {
        if (invoker_)
            invoker_(*this);
    }

protected:
    callback0(invoker call, void const* object, void const* callable, unsigned size) noexcept
        : callback_base(object, callable, size), invoker_(call) {}

private:
    invoker invoker_;
};

// What a thread or a visit calls.
class ZEL_API initiator {
public:
    initiator() noexcept = default;
    initiator(initiator const&) noexcept = default;
    initiator& operator=(initiator const&) noexcept = default;
    virtual explicit operator bool() const = 0;
    virtual void operator()() const = 0;
    virtual ~initiator();
};

class ZEL_API initiator0 : public initiator {
public:
    initiator0() noexcept = default;
    initiator0(callback0 const& call) noexcept : call_(call) {}
    initiator0(initiator0 const&) noexcept = default;
    initiator0& operator=(initiator0 const&) noexcept = default;
    ~initiator0() override;

    void reset(callback0 const& call) noexcept { call_ = call; }
    explicit operator bool() const override;
    void operator()() const override;

private:
    callback0 call_;
};

// ---------------------------------------------------------------------------
// The typed layer: builders of callback0 with their invokers.

namespace detail {

template <class R>
class function_callback : public callback0 {
public:
    using function = R (*)();
    explicit function_callback(function f) noexcept
        : callback0(&invoke, nullptr, reinterpret_cast<void const*>(f), 0) {}

private:
    static void invoke(callback_base const& self) {
        reinterpret_cast<function>(const_cast<void*>(self.first_word()))();
    }
};

// M is a pointer to a member function of T taking no arguments.
template <class T, class M>
class member_callback : public callback0 {
public:
    static_assert(sizeof(M) <= callback_base::buffer_size, "member pointer too large");
    member_callback(T& object, M member) noexcept
        : callback0(&invoke, &object, &member, sizeof member) {}

private:
    static void invoke(callback_base const& self) {
        M member;
        std::memcpy(&member, self.callable(), sizeof member);
        (static_cast<T*>(const_cast<void*>(self.object()))->*member)();
    }
};

} // namespace detail

// A callback calling f().
template <class R>
callback0 make_callback(R (*f)()) noexcept {
    return detail::function_callback<R>(f);
}

// A callback calling (object.*member)(); the object is not copied.
template <class T, class R>
callback0 make_callback(T& object, R (T::*member)()) noexcept {
    return detail::member_callback<T, R (T::*)()>(object, member);
}

template <class T, class R>
callback0 make_callback(T const& object, R (T::*member)() const) noexcept {
    return detail::member_callback<T const, R (T::*)() const>(object, member);
}

// ---------------------------------------------------------------------------
// A container visit's callback: the object is the caller's function object,
// the buffer holds the function that calls it with an element. The
// containers' engines hand each element's address to call_element_visitor.

namespace detail {

using element_invoker = void (*)(void const* object, void const* element);

template <class V, class F>
void invoke_element(void const* f, void const* v) {
    (*static_cast<F*>(const_cast<void*>(f)))(*static_cast<V*>(const_cast<void*>(v)));
}

} // namespace detail

// Calls f(element) as a V (V may be a reference type; const for a const
// visit). f is not copied: it must outlive the visit.
template <class V, class F>
callback_base element_visitor(F& f) noexcept {
    detail::element_invoker const call = &detail::invoke_element<std::remove_reference_t<V>, F>;
    return callback_base(&f, &call, sizeof call);
}

// Calls what element_visitor stored (callback points to its callback_base)
// with the element at `element`.
inline void call_element_visitor(void const* callback, void const* element) {
    auto const& c = *static_cast<callback_base const*>(callback);
    detail::element_invoker call;
    std::memcpy(&call, c.callable(), sizeof call);
    call(c.object(), element);
}

} // namespace zel

#endif
