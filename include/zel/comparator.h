// Comparators as the container engines see them. An engine never knows its
// element type, so it receives a comparator_base, which compares two elements
// given as untyped pointers, and wraps it in a void_comparator that it hands
// to the typed layer's compare hooks.
//
// The answer of a comparator passed to an engine is "the first stays ahead of
// the second". For sorting and merging the typed layer passes an
// order_comparator, whose answer is !comp(b, a): equal elements keep their
// order, so the sorts built on it are stable. For unique and remove it passes
// a match_comparator, whose answer is the predicate itself.
//
// less, greater and equal_to are the library's typed comparators: ordinary
// function objects over T that are comparator_bases as well.
#ifndef ZEL_COMPARATOR_H
#define ZEL_COMPARATOR_H

#include <utility>

#include <zel/config.h>

namespace zel {

class ZEL_API comparator_base {
public:
    comparator_base() noexcept = default;
    comparator_base(comparator_base const&) noexcept = default;
    comparator_base& operator=(comparator_base const&) noexcept = default;
    virtual ~comparator_base();

    // Compares the elements at a and b; what the answer means is the
    // caller's contract (see the banner).
    virtual bool compare(void const* a, void const* b) const = 0;
};

// What an engine holds while it works: a reference to the caller's
// comparator, applied to untyped element pointers.
class void_comparator {
public:
    explicit void_comparator(comparator_base const& c) noexcept : comparator_(&c) {}
    bool operator()(void const* a, void const* b) const { return comparator_->compare(a, b); }
    comparator_base const& base() const noexcept { return *comparator_; }

private:
    comparator_base const* comparator_;
};

template <class T>
struct less : comparator_base {
    bool operator()(T const& a, T const& b) const { return a < b; }
    bool compare(void const* a, void const* b) const override {
        return *static_cast<T const*>(a) < *static_cast<T const*>(b);
    }
};

template <class T>
struct greater : comparator_base {
    bool operator()(T const& a, T const& b) const { return b < a; }
    bool compare(void const* a, void const* b) const override {
        return *static_cast<T const*>(b) < *static_cast<T const*>(a);
    }
};

template <class T>
struct equal_to : comparator_base {
    bool operator()(T const& a, T const& b) const { return a == b; }
    bool compare(void const* a, void const* b) const override {
        return *static_cast<T const*>(a) == *static_cast<T const*>(b);
    }
};

// "a stays ahead of b" for an ordering `Compare` (a strict weak order over
// T, such as zel::less<T> or a lambda): !comp(b, a).
template <class T, class Compare>
class order_comparator final : public comparator_base {
public:
    explicit order_comparator(Compare comp) : comp_(std::move(comp)) {}
    bool compare(void const* a, void const* b) const override {
        return !comp_(*static_cast<T const*>(b), *static_cast<T const*>(a));
    }

private:
    Compare comp_;
};

// "a matches b" for a predicate over (T, U): pred(a, b).
template <class T, class Predicate, class U = T>
class match_comparator final : public comparator_base {
public:
    explicit match_comparator(Predicate pred) : pred_(std::move(pred)) {}
    bool compare(void const* a, void const* b) const override {
        return pred_(*static_cast<T const*>(a), *static_cast<U const*>(b));
    }

private:
    Predicate pred_;
};

} // namespace zel

#endif
