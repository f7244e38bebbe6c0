// The library's string class: string_base, a one-pointer handle onto a
// shared string_engine, and the typed layer basic_string with zel::string
// and zel::wstring.
//
// Copying a string shares its engine (one atomic increment); the characters
// are copied only when a shared string is about to change (copy-on-write).
// Every member that changes characters first makes the engine private.
//
// Conventions of every member:
//   - counts and positions are unsigned 32-bit; npos (0xFFFFFFFF) is "no
//     position" in results, "to the end" as a count and "the traits length"
//     as a text length;
//   - a null text, pattern or set raises invalid_argument (through
//     zel_throw, file src/strbasea.cpp or src/strbasew.cpp);
//   - a start position past the size raises out_of_range by a plain throw,
//     without location; a count is cut to what remains;
//   - the backward searches (rfind, find_last_of, find_last_not_of and
//     their i twins), given a position, search from the first character
//     through that position inclusive: a pattern must end by it;
//   - comparisons order `char` as signed bytes (see char_traits.h).
//
// Kept behaviours worth knowing:
//   - appending, inserting or filling with a null character through the
//     character forms truncates the string at that position instead (pass
//     a text of length 1 to store a null character, or use put);
//   - the string heaps decide reallocation by granule, so a block reserved
//     with reserve() shrinks again at the next edit that lands in a smaller
//     granule.
#ifndef ZEL_STRING_H
#define ZEL_STRING_H

#include <cstddef>
#include <cstdio>
#include <initializer_list>
#include <iterator>
#include <type_traits>

#include <zel/char_traits.h>
#include <zel/config.h>
#include <zel/string_engine.h>

namespace zel {

// The flags of substitution and stripping.
struct string_flags {
    // Which occurrences a substitution touches; any other value makes it do
    // nothing and report 0.
    enum sub_flags : unsigned { sub_all = 1, sub_first = 2, sub_last = 4 };
    // Which ends a strip touches.
    enum strip_flags : unsigned { strip_front = 16, strip_back = 32, strip_both = 48 };
};

// A span found by a regular expression: a position and a length. No match
// is all bits set in both.
struct match_pair {
    unsigned position;
    unsigned length;

    static constexpr unsigned none = 0xFFFFFFFFu;
    bool found() const noexcept { return position != none; }
    friend bool operator==(match_pair a, match_pair b) noexcept {
        return a.position == b.position && a.length == b.length;
    }
    friend bool operator!=(match_pair a, match_pair b) noexcept { return !(a == b); }
};

class regex_base;
class wregex_base;
template <class C>
class basic_stringbuf;

// A position in a string: the string's address and an index, so it stays
// valid while the string reallocates. The mutable form writes through at(),
// which makes the engine private first.
template <class Owner, class C, class Ref>
class string_iterator {
public:
    using iterator_category = std::random_access_iterator_tag;
    using value_type = C;
    using difference_type = std::ptrdiff_t;
    using pointer = std::remove_reference_t<Ref>*;
    using reference = Ref;

    string_iterator() noexcept = default;
    string_iterator(Owner* s, unsigned i) noexcept : s_(s), i_(i) {}
    // A mutable iterator converts to a constant one.
    template <class O, class R, class = std::enable_if_t<std::is_convertible_v<O*, Owner*>>>
    string_iterator(string_iterator<O, C, R> const& other) noexcept
        : s_(other.owner()), i_(other.index()) {}

    Owner* owner() const noexcept { return s_; }
    unsigned index() const noexcept { return i_; }

    Ref operator*() const { return s_->at(i_); }
    Ref operator[](difference_type n) const { return s_->at(unsigned(i_ + n)); }
    string_iterator& operator++() noexcept { ++i_; return *this; }
    string_iterator operator++(int) noexcept { string_iterator t = *this; ++i_; return t; }
    string_iterator& operator--() noexcept { --i_; return *this; }
    string_iterator operator--(int) noexcept { string_iterator t = *this; --i_; return t; }
    string_iterator& operator+=(difference_type n) noexcept { i_ = unsigned(i_ + n); return *this; }
    string_iterator& operator-=(difference_type n) noexcept { i_ = unsigned(i_ - n); return *this; }
    friend string_iterator operator+(string_iterator a, difference_type n) noexcept { return a += n; }
    friend string_iterator operator+(difference_type n, string_iterator a) noexcept { return a += n; }
    friend string_iterator operator-(string_iterator a, difference_type n) noexcept { return a -= n; }
    friend difference_type operator-(string_iterator const& a, string_iterator const& b) noexcept {
        return difference_type(a.i_) - difference_type(b.i_);
    }
    friend bool operator==(string_iterator const& a, string_iterator const& b) noexcept {
        return a.s_ == b.s_ && a.i_ == b.i_;
    }
    friend bool operator!=(string_iterator const& a, string_iterator const& b) noexcept { return !(a == b); }
    friend bool operator<(string_iterator const& a, string_iterator const& b) noexcept { return a.i_ < b.i_; }
    friend bool operator>(string_iterator const& a, string_iterator const& b) noexcept { return b < a; }
    friend bool operator<=(string_iterator const& a, string_iterator const& b) noexcept { return !(b < a); }
    friend bool operator>=(string_iterator const& a, string_iterator const& b) noexcept { return !(a < b); }

private:
    Owner* s_ = nullptr;
    unsigned i_ = 0;
};

template <class C>
class ZEL_API string_base : public string_flags {
public:
    using value_type = C;
    using traits_type = char_traits<C>;
    using engine_type = string_engine<C>;
    using size_type = unsigned;
    using iterator = string_iterator<string_base, C, C&>;
    using const_iterator = string_iterator<string_base const, C, C const&>;
    using reverse_iterator = std::reverse_iterator<iterator>;
    using const_reverse_iterator = std::reverse_iterator<const_iterator>;
    // The regular-expression class over this character type.
    using regex_type = std::conditional_t<std::is_same_v<C, char>, regex_base, wregex_base>;
    using hash_function = unsigned (*)(C const*);
    using string_hash_function = unsigned (*)(string_base const&);

    static constexpr unsigned npos = 0xFFFFFFFFu;

    // --- construction -------------------------------------------------------
    string_base(string_base const& s) noexcept : e_(s.e_) { e_->acquire(); }
    // The concatenating constructors share the first operand's engine and
    // append the second (copy-on-write makes that safe).
    string_base(string_base const& a, string_base const& b);
    string_base(string_base const& a, C const* b);
    string_base(C const* a, string_base const& b);
    string_base(string_base const& a, C b);
    string_base(C a, string_base const& b);
    ~string_base() { e_->release(); }

    // --- assignment -----------------------------------------------------------
    string_base& operator=(string_base const& s) { return assign_by_source(s); }
    string_base& operator=(C const* p) { return assign(p); }
    string_base& operator=(C c) { return assign(c, 1u); }
    string_base& assign(string_base const& s, unsigned pos = 0, unsigned count = npos) {
        return edit(0, npos, s.data(), s.size(), pos, count);
    }
    string_base& assign(C const* p, unsigned length = npos) { return edit(0, npos, p, length, 0, npos); }
    string_base& assign(C c, unsigned n) { return fill(0, npos, c, n); }
    string_base& assign(unsigned n, C c) { return fill(0, npos, c, n); }
    string_base& assign(const_iterator first, const_iterator last) {
        return edit(0, npos, first, last);
    }
    // Shares the other's engine (nothing changes when it already does).
    string_base& assign_by_reference(string_base const& s) noexcept {
        adopt(s.e_);
        return *this;
    }
    // Shares the source's engine when both heaps are of one class (the same
    // id()); otherwise copies its characters into an engine of this heap.
    string_base& assign_by_source(string_base const& s);
    void swap(string_base& s) noexcept {
        engine_type* t = e_;
        e_ = s.e_;
        s.e_ = t;
    }
    void clear() { erase(); }

    // --- editing ----------------------------------------------------------------
    string_base& append(string_base const& s, unsigned pos = 0, unsigned count = npos) {
        return edit(size(), 0, s.data(), s.size(), pos, count);
    }
    string_base& append(const_iterator first, const_iterator last) { return edit(size(), 0, first, last); }
    string_base& append(C c, unsigned n = 1) { return fill(size(), 0, c, n); }
    string_base& append(C const* p, unsigned length = npos) { return edit(size(), 0, p, length, 0, npos); }
    string_base& append(unsigned n, C c) { return fill(size(), 0, c, n); }

    string_base& prepend(string_base const& s, unsigned pos = 0, unsigned count = npos) {
        return edit(0, 0, s.data(), s.size(), pos, count);
    }
    string_base& prepend(const_iterator first, const_iterator last) { return edit(0, 0, first, last); }
    string_base& prepend(C c, unsigned n = 1) { return fill(0, 0, c, n); }
    string_base& prepend(C const* p, unsigned length = npos) { return edit(0, 0, p, length, 0, npos); }
    string_base& prepend(unsigned n, C c) { return fill(0, 0, c, n); }

    string_base& insert(unsigned pos, string_base const& s, unsigned spos = 0, unsigned count = npos) {
        return edit(pos, 0, s.data(), s.size(), spos, count);
    }
    string_base& insert(unsigned pos, C const* p, unsigned length = npos) {
        return edit(pos, 0, p, length, 0, npos);
    }
    string_base& insert(unsigned pos, C c, unsigned n = 1) { return fill(pos, 0, c, n); }
    string_base& insert(unsigned pos, unsigned n, C c) { return fill(pos, 0, c, n); }
    iterator insert(iterator it, C c) { fill(it.index(), 0, c, 1); return it; }
    iterator insert(iterator it, unsigned n, C c) { fill(it.index(), 0, c, n); return it; }
    iterator insert(iterator it, const_iterator first, const_iterator last) {
        edit(it.index(), 0, first, last);
        return it;
    }
    iterator insert(iterator it, string_base const& s) {
        edit(it.index(), 0, s.data(), s.size(), 0, npos);
        return it;
    }
    iterator insert(iterator it, C const* p, unsigned length = npos) {
        edit(it.index(), 0, p, length, 0, npos);
        return it;
    }

    string_base& replace(unsigned pos, unsigned count, string_base const& s, unsigned spos = 0,
                         unsigned scount = npos) {
        return edit(pos, count, s.data(), s.size(), spos, scount);
    }
    string_base& replace(unsigned pos, unsigned count, C const* p, unsigned length = npos) {
        return edit(pos, count, p, length, 0, npos);
    }
    string_base& replace(unsigned pos, unsigned count, C c, unsigned n = 1) { return fill(pos, count, c, n); }
    string_base& replace(unsigned pos, unsigned count, unsigned n, C c) { return fill(pos, count, c, n); }
    string_base& replace(iterator first, iterator last, string_base const& s) {
        return edit(first.index(), span(first, last), s.data(), s.size(), 0, npos);
    }
    string_base& replace(iterator first, iterator last, C const* p, unsigned length = npos) {
        return edit(first.index(), span(first, last), p, length, 0, npos);
    }
    string_base& replace(iterator first, iterator last, C c, unsigned n = 1) {
        return fill(first.index(), span(first, last), c, n);
    }
    string_base& replace(iterator first, iterator last, const_iterator sfirst, const_iterator slast) {
        return edit(first.index(), span(first, last), sfirst, slast);
    }

    string_base& erase(unsigned pos = 0, unsigned count = npos) {
        adopt(e_->remove(pos, count));
        return *this;
    }
    iterator erase(iterator it) { erase(it.index(), 1); return it; }
    iterator erase(iterator first, iterator last) { erase(first.index(), span(first, last)); return first; }

    string_base& operator+=(string_base const& s) { return append(s); }
    string_base& operator+=(C const* p) { return append(p); }
    string_base& operator+=(C c) { return append(c, 1u); }

    // The checked store: raises out_of_range (through zel_throw) when i is
    // not below the size; stores any character, the null character too.
    void put(C c, unsigned i);
    // Makes the size n: growing pads with c (a null c only reserves room),
    // shrinking truncates.
    string_base& resize(unsigned n, C c = C(0)) {
        if (n != size())
            adopt(e_->resize(n, c));
        return *this;
    }
    // Makes room for at least n characters (the heap may round up further);
    // the size stays. See the file comment on how long a reservation holds.
    void reserve(unsigned n) {
        if (n > capacity())
            adopt(e_->resize(n, C(0)));
    }
    unsigned reserve() const noexcept { return capacity(); }
    // Characters pos to pos + count (cut) as a new string of this heap.
    string_base substr(unsigned pos = 0, unsigned count = npos) const {
        return string_base(e_->create(data(), size(), pos, count));
    }
    // Makes the engine private (copies it when shared).
    void unique() {
        if (e_->shared())
            detach();
    }

    // --- search -------------------------------------------------------------------
    // Each family in six forms: (string, pos), (character, pos), (text, pos,
    // length) and the range forms (pos, count, string, its pos, its count),
    // (pos, count, character), (pos, count, text, length), which search
    // exactly the count characters from pos. They return an index or npos.
#define ZEL_STRING_SEARCH_FAMILY(name, fn, from)                                               \
    unsigned name(string_base const& s, unsigned pos = from) const {                           \
        return search_from(&traits_type::fn, pos, from != 0, s.data(), s.size());              \
    }                                                                                          \
    unsigned name(C c, unsigned pos = from) const {                                            \
        return search_from(&traits_type::fn, pos, from != 0, &c, 1);                            \
    }                                                                                          \
    unsigned name(C const* p, unsigned pos = from, unsigned length = npos) const {             \
        return search_from(&traits_type::fn, pos, from != 0, p, length);                        \
    }                                                                                          \
    unsigned name(unsigned pos, unsigned count, string_base const& s, unsigned spos,           \
                  unsigned scount) const {                                                     \
        return search(&traits_type::fn, pos, count, s, spos, scount);                           \
    }                                                                                          \
    unsigned name(unsigned pos, unsigned count, C c) const {                                   \
        return search(&traits_type::fn, pos, count, &c, 1, false);                              \
    }                                                                                          \
    unsigned name(unsigned pos, unsigned count, C const* p, unsigned length) const {           \
        return search(&traits_type::fn, pos, count, p, length, false);                          \
    }

    ZEL_STRING_SEARCH_FAMILY(find, find, 0u)
    ZEL_STRING_SEARCH_FAMILY(rfind, rfind, npos)
    ZEL_STRING_SEARCH_FAMILY(find_first_of, find_first_of, 0u)
    ZEL_STRING_SEARCH_FAMILY(find_first_not_of, find_first_not_of, 0u)
    ZEL_STRING_SEARCH_FAMILY(find_last_of, find_last_of, npos)
    ZEL_STRING_SEARCH_FAMILY(find_last_not_of, find_last_not_of, npos)
    ZEL_STRING_SEARCH_FAMILY(ifind, ifind, 0u)
    ZEL_STRING_SEARCH_FAMILY(irfind, irfind, npos)
    ZEL_STRING_SEARCH_FAMILY(ifind_first_of, ifind_first_of, 0u)
    ZEL_STRING_SEARCH_FAMILY(ifind_first_not_of, ifind_first_not_of, 0u)
    ZEL_STRING_SEARCH_FAMILY(ifind_last_of, ifind_last_of, npos)
    ZEL_STRING_SEARCH_FAMILY(ifind_last_not_of, ifind_last_not_of, npos)
#undef ZEL_STRING_SEARCH_FAMILY

    // --- regular-expression search -----------------------------------------------
    // The match of the expression in the characters from pos (count of
    // them; npos: to the end) as a span of this string: positions count
    // from the string's start, not from pos. No match is npos in both
    // fields; pos past the size raises out_of_range. The long form chooses:
    // search (false: the match must begin at pos, as regex_base::compare),
    // exact_case, and last (true: the last match, searching on after each
    // one; an empty match ends that scan).
    match_pair find(regex_type const& re, unsigned pos = 0) const {
        return find(re, pos, npos, true, true, false);
    }
    match_pair find(regex_type const& re, unsigned pos, unsigned count) const {
        return find(re, pos, count, true, true, false);
    }
    match_pair find(regex_type const& re, unsigned pos, unsigned count, bool search, bool exact_case,
                    bool last) const;
    match_pair ifind(regex_type const& re, unsigned pos = 0) const {
        return find(re, pos, npos, true, false, false);
    }
    match_pair ifind(regex_type const& re, unsigned pos, unsigned count) const {
        return find(re, pos, count, true, false, false);
    }

    // Whether the matching find (or ifind) yields a position; with an
    // expression, a match.
    template <class... A>
    bool contains(A const&... a) const { return found(find(a...)); }
    template <class... A>
    bool icontains(A const&... a) const { return found(ifind(a...)); }

    // --- comparison -----------------------------------------------------------------
    // The characters from pos (count of them) against the other operand:
    // below, equal to or above 0. Two whole strings go straight to the
    // kernel (inline, one memcmp over the common prefix for exact narrow
    // comparison).
#define ZEL_STRING_COMPARE_FAMILY(name, fn)                                                    \
    int name(string_base const& s, unsigned pos = 0) const {                                   \
        if (pos == 0)                                                                          \
            return traits_type::fn(data(), size(), s.data(), s.size());                        \
        return compare_with(&traits_type::fn, pos, npos, s.data(), s.size());                  \
    }                                                                                          \
    int name(C c, unsigned pos = 0) const { return compare_with(&traits_type::fn, pos, npos, &c, 1); } \
    int name(C const* p, unsigned pos = 0, unsigned length = npos) const {                     \
        return compare_with(&traits_type::fn, pos, npos, p, length);                           \
    }                                                                                          \
    int name(unsigned pos, unsigned count, string_base const& s, unsigned spos,                \
             unsigned scount) const {                                                          \
        return compare_with(&traits_type::fn, pos, count, s, spos, scount);                    \
    }                                                                                          \
    int name(unsigned pos, unsigned count, C const* p, unsigned length) const {                \
        return compare_with(&traits_type::fn, pos, count, p, length);                          \
    }

    ZEL_STRING_COMPARE_FAMILY(compare, compare)
    ZEL_STRING_COMPARE_FAMILY(icompare, icompare)
#undef ZEL_STRING_COMPARE_FAMILY

    // --- substitution ---------------------------------------------------------------
    // Replace occurrences of the pattern by the replacement; return how
    // many. Every occurrence (sub_all) scans forward and resumes after each
    // replacement; an empty pattern changes nothing and returns npos.
#define ZEL_STRING_SUB_FAMILY(name, exact)                                                     \
    unsigned name(string_base const& pat, string_base const& rep, unsigned flags = sub_all) {  \
        return substitute(pat.data(), pat.size(), rep.data(), rep.size(), flags, exact);       \
    }                                                                                          \
    unsigned name(C const* pat, C const* rep, unsigned flags = sub_all) {                      \
        return substitute(pat, npos, rep, npos, flags, exact);                                 \
    }                                                                                          \
    unsigned name(string_base const& pat, C const* rep, unsigned flags = sub_all) {            \
        return substitute(pat.data(), pat.size(), rep, npos, flags, exact);                    \
    }                                                                                          \
    unsigned name(C const* pat, string_base const& rep, unsigned flags = sub_all) {            \
        return substitute(pat, npos, rep.data(), rep.size(), flags, exact);                    \
    }                                                                                          \
    unsigned name(string_base const& pat, C c, unsigned n, unsigned flags = sub_all) {         \
        return substitute(pat.data(), pat.size(), c, n, flags, exact);                         \
    }                                                                                          \
    unsigned name(C const* pat, C c, unsigned n, unsigned flags = sub_all) {                   \
        return substitute(pat, npos, c, n, flags, exact);                                      \
    }

    ZEL_STRING_SUB_FAMILY(tsub, true)
    ZEL_STRING_SUB_FAMILY(itsub, false)
#undef ZEL_STRING_SUB_FAMILY

    // Substitution by nothing.
#define ZEL_STRING_REMOVE_FAMILY(name, exact)                                                  \
    unsigned name(string_base const& pat, unsigned flags = sub_all) {                          \
        return substitute(pat.data(), pat.size(), nullptr, 0, flags, exact);                   \
    }                                                                                          \
    unsigned name(C const* pat, unsigned flags = sub_all) {                                    \
        return substitute(pat, npos, nullptr, 0, flags, exact);                                \
    }                                                                                          \
    unsigned name(C c, unsigned flags = sub_all) { return substitute(&c, 1, nullptr, 0, flags, exact); }

    ZEL_STRING_REMOVE_FAMILY(remove, true)
    ZEL_STRING_REMOVE_FAMILY(iremove, false)
#undef ZEL_STRING_REMOVE_FAMILY

    // Substitution of the expression's matches, found as find does: every
    // match (each search begins where the last match ended, and sees that
    // place as a subject start, so ^ matches there), the first or the last.
    // The first- and last-occurrence forms make one search and one
    // replacement, so an empty match is replaced too (the replacement is
    // inserted there, and counts 1). Only the every-occurrence form passes
    // over empty matches: a search that finds nothing longer than an empty
    // match ends it, since an empty match would never advance. The
    // replacement may be a part of this string.
#define ZEL_STRING_REGEX_SUB_FAMILY(name, exact)                                               \
    unsigned name(regex_type const& re, string_base const& rep, unsigned flags = sub_all) {    \
        return substitute(re, rep.data(), rep.size(), flags, exact);                           \
    }                                                                                          \
    unsigned name(regex_type const& re, C const* rep, unsigned flags = sub_all) {              \
        return substitute(re, rep, npos, flags, exact);                                        \
    }                                                                                          \
    unsigned name(regex_type const& re, C c, unsigned n, unsigned flags = sub_all) {           \
        string_base const replacement(e_->create(c, n));                                       \
        return substitute(re, replacement.data(), replacement.size(), flags, exact);           \
    }
    ZEL_STRING_REGEX_SUB_FAMILY(tsub, true)
    ZEL_STRING_REGEX_SUB_FAMILY(itsub, false)
#undef ZEL_STRING_REGEX_SUB_FAMILY
    unsigned remove(regex_type const& re, unsigned flags = sub_all) {
        return substitute(re, nullptr, 0, flags, true);
    }
    unsigned iremove(regex_type const& re, unsigned flags = sub_all) {
        return substitute(re, nullptr, 0, flags, false);
    }

    // --- stripping ------------------------------------------------------------------
    // Removes the characters of the set from the chosen ends; a string made
    // only of them becomes empty; an empty set changes nothing.
    string_base& strip(string_base const& set, unsigned flags = strip_both) {
        return strip_set(set.data(), set.size(), flags);
    }
    string_base& strip(C const* set, unsigned flags = strip_both) { return strip_set(set, npos, flags); }
    string_base& strip(C c, unsigned flags = strip_both) { return strip_set(&c, 1, flags); }
    // Strip the whitespace set: space, newline, tab, carriage return,
    // vertical tab, form feed.
    string_base& trim() { return strip_set(whitespace, 6, strip_both); }
    string_base& trim_front() { return strip_set(whitespace, 6, strip_front); }
    string_base& trim_back() { return strip_set(whitespace, 6, strip_back); }

    // --- case and order -----------------------------------------------------------------
    string_base& tolower(unsigned pos = 0, unsigned count = npos) { return transform(lower, pos, count); }
    string_base& toupper(unsigned pos = 0, unsigned count = npos) { return transform(upper, pos, count); }
    string_base& toinverse(unsigned pos = 0, unsigned count = npos) { return transform(inverse, pos, count); }
    string_base& reverse(unsigned pos = 0, unsigned count = npos) { return transform(reversed, pos, count); }

    // Replaces each tab by spaces up to the next multiple of tab_size of
    // the column (newline and carriage return restart the column at 0).
    // A tab size of 0 or of 512 and more leaves the string unchanged.
    string_base& expand_tabs(unsigned tab_size = 8);

    // --- access -------------------------------------------------------------------------
    // Unchecked. The mutable forms make the engine private first, so a
    // write through the reference never reaches another sharer.
    C& at(unsigned i) {
        if (e_->shared())
            detach();
        return *e_->data(i);
    }
    C& operator[](unsigned i) { return at(i); }
    C const& at(unsigned i) const noexcept { return *e_->data(i); }
    C const& operator[](unsigned i) const noexcept { return *e_->data(i); }
    C at_pos(unsigned i) const noexcept { return *e_->data(i); }
    C const* c_str() const noexcept { return e_->data(); }
    C const* data() const noexcept { return e_->data(); }
    unsigned size() const noexcept { return e_->size(); }
    unsigned length() const noexcept { return e_->size(); }
    unsigned capacity() const noexcept { return e_->capacity(); }
    unsigned max_size() const { return e_->max_size(); }
    bool empty() const noexcept { return e_->size() == 0; }
    bool not_empty() const noexcept { return e_->size() != 0; }
    unsigned hash(hash_function f) const { return f(c_str()); }
    unsigned hash(string_hash_function f) const { return f(*this); }

    iterator begin() noexcept { return iterator(this, 0); }
    iterator end() noexcept { return iterator(this, size()); }
    const_iterator begin() const noexcept { return const_iterator(this, 0); }
    const_iterator end() const noexcept { return const_iterator(this, size()); }
    reverse_iterator rbegin() noexcept { return reverse_iterator(end()); }
    reverse_iterator rend() noexcept { return reverse_iterator(begin()); }
    const_reverse_iterator rbegin() const noexcept { return const_reverse_iterator(end()); }
    const_reverse_iterator rend() const noexcept { return const_reverse_iterator(begin()); }
    iterator pos(unsigned i) noexcept { return iterator(this, i); }
    const_iterator pos(unsigned i) const noexcept { return const_iterator(this, i); }

    // --- stream ---------------------------------------------------------------------------
    // Writes the characters (narrow: with fputs, so up to the first null
    // character; wide: as raw 16-bit units). Returns the size, or npos for
    // a null stream or a failed write.
    unsigned write(std::FILE* stream) const;
    // Replaces the contents by up to count characters read from the stream
    // (to its end by default; wide: raw 16-bit units). Returns the number
    // read, or npos for a null stream.
    unsigned read(std::FILE* stream, unsigned count = npos);

protected:
    // The string buffer grows its private string through the engine, so
    // that characters no member can show are neither filled nor copied.
    friend class basic_stringbuf<C>;

    // Takes the engine (a fresh one with refs 0, or a shared one).
    explicit string_base(engine_type* e) noexcept : e_(e) { e_->acquire(); }
    engine_type* engine() const noexcept { return e_; }
    // Switches to the engine an operation returned, if it is another one.
    void adopt(engine_type* r) noexcept {
        if (r != e_)
            e_ = e_->switch_to(r);
    }

private:
    using search_fn = C const* (*)(C const*, unsigned, C const*, unsigned);
    using compare_fn = int (*)(C const*, unsigned, C const*, unsigned);
    enum transform_kind { lower, upper, inverse, reversed };
    static constexpr C whitespace[6] = {C(' '), C('\n'), C('\t'), C('\r'), C('\v'), C('\f')};

    static unsigned span(const_iterator first, const_iterator last) noexcept {
        return unsigned(last - first);
    }
    // The forward forms search from pos to the end; the backward forms
    // from 0 through pos inclusive.
    unsigned search_from(search_fn f, unsigned pos, bool backward, C const* p, unsigned length) const {
        return backward ? search(f, 0, pos, p, length, true) : search(f, pos, npos, p, length, false);
    }

    void detach();
    string_base& edit(unsigned pos, unsigned len, C const* p, unsigned plen, unsigned ppos, unsigned pn);
    string_base& edit(unsigned pos, unsigned len, const_iterator first, const_iterator last) {
        string_base const& s = *first.owner();
        return edit(pos, len, s.data(), s.size(), first.index(), span(first, last));
    }
    string_base& fill(unsigned pos, unsigned len, C c, unsigned n);
    unsigned search(search_fn f, unsigned pos, unsigned count, C const* p, unsigned length,
                    bool inclusive) const;
    unsigned search(search_fn f, unsigned pos, unsigned count, string_base const& s, unsigned spos,
                    unsigned scount) const;
    int compare_with(compare_fn f, unsigned pos, unsigned count, C const* p, unsigned length) const;
    int compare_with(compare_fn f, unsigned pos, unsigned count, string_base const& s, unsigned spos,
                     unsigned scount) const;
    unsigned substitute(C const* pat, unsigned plen, C const* rep, unsigned rlen, unsigned flags,
                        bool exact);
    unsigned substitute(C const* pat, unsigned plen, C c, unsigned n, unsigned flags, bool exact);
    unsigned substitute(regex_type const& re, C const* rep, unsigned rlen, unsigned flags, bool exact);
    static bool found(unsigned index) noexcept { return index != npos; }
    static bool found(match_pair const& m) noexcept { return m.found(); }
    string_base& strip_set(C const* set, unsigned length, unsigned flags);
    string_base& transform(transform_kind kind, unsigned pos, unsigned count);

    engine_type* e_;
};

ZEL_EXTERN_TEMPLATE(string_base<char>);
ZEL_EXTERN_TEMPLATE(string_base<unsigned short>);

// Equality compares the characters; the order is compare's.
template <class C>
bool operator==(string_base<C> const& a, string_base<C> const& b) noexcept {
    return a.size() == b.size() && char_traits<C>::compare(a.data(), b.data(), a.size()) == 0;
}
template <class C>
bool operator==(string_base<C> const& a, C const* b) noexcept {
    return char_traits<C>::compare(a.data(), a.size(), b, char_traits<C>::length(b)) == 0;
}
template <class C>
bool operator==(C const* a, string_base<C> const& b) noexcept { return b == a; }
template <class C>
bool operator<(string_base<C> const& a, string_base<C> const& b) noexcept {
    return char_traits<C>::compare(a.data(), a.size(), b.data(), b.size()) < 0;
}
template <class C>
bool operator!=(string_base<C> const& a, string_base<C> const& b) noexcept { return !(a == b); }
template <class C>
bool operator!=(string_base<C> const& a, C const* b) noexcept { return !(a == b); }
template <class C>
bool operator!=(C const* a, string_base<C> const& b) noexcept { return !(b == a); }
template <class C>
bool operator>(string_base<C> const& a, string_base<C> const& b) noexcept { return b < a; }
template <class C>
bool operator<=(string_base<C> const& a, string_base<C> const& b) noexcept { return !(b < a); }
template <class C>
bool operator>=(string_base<C> const& a, string_base<C> const& b) noexcept { return !(a < b); }

// The typed layer: a string over a character type, its traits and a heap
// (a string heap, or any default-constructible allocator_engine). It adds
// no field to string_base; it supplies the empty engine of its heap's
// initializer and the constructors users expect.
template <class C, class Traits, class Heap>
class basic_string : public string_base<C> {
    using base = string_base<C>;

public:
    using base::npos;
    using traits_type = Traits;
    using heap_type = Heap;

    basic_string() : base(initializer().init()) {}
    basic_string(C const* p, unsigned length = npos) : base(make(p, length)) {}
    basic_string(unsigned n, C c) : base(initializer().init()) { base::append(c, n); }
    basic_string(std::initializer_list<C> chars) : base(initializer().init()) {
        base::append(chars.begin(), unsigned(chars.size()));
    }
    // From a range of characters; null characters are kept.
    template <class It, class = typename std::iterator_traits<It>::iterator_category>
    basic_string(It first, It last) : base(initializer().init()) {
        for (; first != last; ++first) {
            C const c = *first;
            base::append(&c, 1);
        }
    }
    // A wide string from a UTF-16 literal (u"...").
    template <class D = C, class = std::enable_if_t<std::is_same_v<D, unsigned short>>>
    basic_string(char16_t const* p, unsigned length = npos)
        : base(make(reinterpret_cast<C const*>(p), length)) {}
    // Shares the other string's engine.
    basic_string(base const& s) noexcept : base(s) {}
    basic_string(basic_string const& s) noexcept : base(s) {}
    basic_string(base const& a, base const& b) : base(a, b) {}
    basic_string(base const& a, C const* b) : base(a, b) {}
    basic_string(C const* a, base const& b) : base(a, b) {}
    basic_string(base const& a, C b) : base(a, b) {}
    basic_string(C a, base const& b) : base(a, b) {}

    basic_string& operator=(basic_string const& s) { base::operator=(s); return *this; }
    basic_string& operator=(base const& s) { base::operator=(s); return *this; }
    basic_string& operator=(C const* p) { base::operator=(p); return *this; }
    basic_string& operator=(C c) { base::operator=(c); return *this; }

    basic_string& operator+=(base const& s) { base::append(s); return *this; }
    basic_string& operator+=(C const* p) { base::append(p); return *this; }
    // Inline paths for a private engine of this heap, doing exactly what
    // the engine's merge would: a next character that stays in the same
    // granule is written in place; one that crosses into the next granule
    // (the heap's query_resize would answer true) goes into a new block
    // for size + 1 characters behind a copy of the old ones. A shared
    // engine, a null character (which truncates) and other heaps go
    // through the engine.
    basic_string& operator+=(C c) {
        if constexpr (has_granule) {
            string_engine<C>* e = this->engine();
            if (c != C(0) && e->pool() == initializer().storage() && !e->shared()) {
                unsigned const n = e->size();
                if (room_in_granule(e->capacity(), n)) {
                    *e->data(n) = c;
                    e->terminate(n + 1);
                } else {
                    string_engine<C>* r = e->allocate(n + 1);
                    Traits::copy(r->data(), e->data(), n);
                    *r->data(n) = c;
                    this->adopt(r->terminate(n + 1));
                }
                return *this;
            }
        }
        base::append(c, 1u);
        return *this;
    }
    void push_back(C c) { *this += c; }

    basic_string substr(unsigned pos = 0, unsigned count = npos) const { return base::substr(pos, count); }

    friend basic_string operator+(basic_string const& a, basic_string const& b) { return basic_string(a, b); }
    friend basic_string operator+(basic_string const& a, C const* b) { return basic_string(a, b); }
    friend basic_string operator+(C const* a, basic_string const& b) { return basic_string(a, b); }
    friend basic_string operator+(basic_string const& a, C b) { return basic_string(a, b); }
    friend basic_string operator+(C a, basic_string const& b) { return basic_string(a, b); }

    // The initializer of this heap's strings.
    static string_initializer<C, Traits, Heap>& initializer() noexcept {
        if constexpr (std::is_same_v<C, char> && std::is_same_v<Traits, char_traits<char>> &&
                      std::is_same_v<Heap, cstring_heap>) {
            return detail::cstring_initializer;
        } else if constexpr (std::is_same_v<C, unsigned short> &&
                             std::is_same_v<Traits, char_traits<unsigned short>> &&
                             std::is_same_v<Heap, wstring_heap>) {
            return detail::wstring_initializer;
        } else {
            static string_initializer<C, Traits, Heap> built_on_first_use;
            return built_on_first_use;
        }
    }

private:
    static constexpr bool has_granule =
        std::is_same_v<Heap, cstring_heap> || std::is_same_v<Heap, wstring_heap>;
    static constexpr unsigned granule = sizeof(C) == 1 ? 32u : 64u;

    // Whether the string heap keeps a block of `capacity` characters when a
    // string of n grows to n + 1: its query_resize compares the two byte
    // sizes rounded up to granules. The heap's capacity fills its block
    // (capacity x the character size + the header allowance is a whole
    // number of granules), so they fall in the same granule exactly when
    // n + 1 <= capacity and fewer than one granule's characters lie between
    // them; the unsigned difference folds both tests into one.
    static constexpr bool room_in_granule(unsigned capacity, unsigned n) noexcept {
        return capacity - n - 1 < granule / unsigned(sizeof(C));
    }
    // An empty text shares the empty engine instead of taking a block.
    static string_engine<C>* make(C const* p, unsigned length) {
        string_engine<C>* e = initializer().init();
        if (!p || length == 0 || (length == npos && *p == C(0)))
            return e;
        return e->create(p, length, 0, npos);
    }
};

using string = basic_string<char, char_traits<char>, cstring_heap>;
using wstring = basic_string<unsigned short, char_traits<unsigned short>, wstring_heap>;

static_assert(sizeof(string) == sizeof(void*) && sizeof(wstring) == sizeof(void*),
              "a string is one pointer");

} // namespace zel

#endif
