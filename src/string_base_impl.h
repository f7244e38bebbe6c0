// Internal to the library: the kernels of string_base, written once over the
// character type and instantiated by src/strbasea.cpp (char) and
// src/strbasew.cpp (unsigned short). Each of those files defines the two
// checked throw sites for its character type, so a report names the file of
// the character type.
//
// Every public form of a family funnels into one kernel here: search,
// compare_with, substitute, strip_set, transform, edit and fill. The
// kernels hold the argument rules; the engine holds the storage rules.
#ifndef ZEL_SRC_STRING_BASE_IMPL_H
#define ZEL_SRC_STRING_BASE_IMPL_H

#include <algorithm>
#include <vector>

#include <zel/exception.h>
#include <zel/regex.h>
#include <zel/string.h>

namespace zel {

namespace detail {
// Raised through zel_throw from the source file of the character type.
[[noreturn]] void string_invalid_argument(char);
[[noreturn]] void string_invalid_argument(unsigned short);
[[noreturn]] void string_put_out_of_range(char);
[[noreturn]] void string_put_out_of_range(unsigned short);

// Position checks of the string kernels: a plain throw without location.
[[noreturn]] inline void string_out_of_range() { throw out_of_range(); }

template <class C>
void require_text(C const* p) {
    if (!p)
        string_invalid_argument(C());
}
} // namespace detail

// --- construction and assignment ----------------------------------------------
// Each concatenating constructor delegates to a complete construction, so
// when the append raises, the destructor gives the engine back.

template <class C>
string_base<C>::string_base(string_base const& a, string_base const& b) : string_base(a) {
    append(b);
}

template <class C>
string_base<C>::string_base(string_base const& a, C const* b) : string_base(a) {
    append(b);
}

template <class C>
string_base<C>::string_base(C const* a, string_base const& b)
    : string_base(b.e_->create(a, npos, 0, npos)) {
    append(b);
}

template <class C>
string_base<C>::string_base(string_base const& a, C b) : string_base(a) {
    append(b, 1u);
}

template <class C>
string_base<C>::string_base(C a, string_base const& b) : string_base(b.e_->create(a, 1)) {
    append(b);
}

template <class C>
string_base<C>& string_base<C>::assign_by_source(string_base const& s) {
    if (s.e_->pool()->id() == e_->pool()->id())
        return assign_by_reference(s);
    adopt(e_->create(s.data(), s.size(), 0, npos));
    return *this;
}

// --- editing -------------------------------------------------------------------------

template <class C>
void string_base<C>::detach() {
    adopt(e_->clone(0));
}

template <class C>
string_base<C>& string_base<C>::edit(unsigned pos, unsigned len, C const* p, unsigned plen,
                                     unsigned ppos, unsigned pn) {
    adopt(e_->merge(pos, len, p, plen, ppos, pn));
    return *this;
}

template <class C>
string_base<C>& string_base<C>::fill(unsigned pos, unsigned len, C c, unsigned n) {
    adopt(e_->merge(pos, len, c, n));
    return *this;
}

template <class C>
void string_base<C>::put(C c, unsigned i) {
    if (i >= size())
        detail::string_put_out_of_range(C());
    unique();
    *e_->data(i) = c;
}

// --- search and comparison ----------------------------------------------------------

template <class C>
unsigned string_base<C>::search(search_fn f, unsigned pos, unsigned count, C const* p,
                                unsigned length, bool inclusive) const {
    detail::require_text(p);
    if (inclusive && count != npos)
        ++count;  // the backward searches include the character at the position
    if (length == npos)
        length = traits_type::length(p);
    unsigned const n = size();
    if (pos > n)
        detail::string_out_of_range();
    count = std::min(count, n - pos);
    C const* const text = data() + pos;
    C const* const found = f(text, count, p, length);
    return found ? unsigned(found - data()) : npos;
}

template <class C>
unsigned string_base<C>::search(search_fn f, unsigned pos, unsigned count, string_base const& s,
                                unsigned spos, unsigned scount) const {
    if (spos > s.size())
        detail::string_out_of_range();
    return search(f, pos, count, s.data() + spos, std::min(scount, s.size() - spos), false);
}

template <class C>
int string_base<C>::compare_with(compare_fn f, unsigned pos, unsigned count, C const* p,
                                 unsigned length) const {
    detail::require_text(p);
    if (length == npos)
        length = traits_type::length(p);
    unsigned const n = size();
    if (pos > n)
        detail::string_out_of_range();
    return f(data() + pos, std::min(count, n - pos), p, length);
}

template <class C>
int string_base<C>::compare_with(compare_fn f, unsigned pos, unsigned count, string_base const& s,
                                 unsigned spos, unsigned scount) const {
    if (spos > s.size())
        detail::string_out_of_range();
    return compare_with(f, pos, count, s.data() + spos, std::min(scount, s.size() - spos));
}

// --- substitution ------------------------------------------------------------------------

template <class C>
unsigned string_base<C>::substitute(C const* pat, unsigned plen, C const* rep, unsigned rlen,
                                    unsigned flags, bool exact) {
    detail::require_text(pat);
    if (plen == npos)
        plen = traits_type::length(pat);
    if (!rep)
        rlen = 0;
    else if (rlen == npos)
        rlen = traits_type::length(rep);
    if (plen == 0)
        return npos;

    search_fn const forward = exact ? search_fn(&traits_type::find) : search_fn(&traits_type::ifind);
    C const* const text = data();
    unsigned const n = size();
    switch (flags) {
    case sub_all: {
        // Searching resumes just after each replacement, so no match can
        // start inside one: every match lies in the original characters,
        // and one forward pass over them finds exactly the same matches.
        // Count them first, then build the result in a new engine; the old
        // one (which pattern and replacement may point into) stays intact
        // until the result is complete.
        unsigned count = 0;
        for (C const* at = text; (at = forward(at, unsigned(text + n - at), pat, plen)); at += plen)
            ++count;
        if (count == 0)
            return 0;
        unsigned const m = n - count * plen + count * rlen;
        engine_type* r = e_->allocate(m);
        C* out = r->data();
        C const* from = text;
        for (unsigned k = 0; k < count; ++k) {
            C const* const at = forward(from, unsigned(text + n - from), pat, plen);
            unsigned const gap = unsigned(at - from);
            traits_type::copy(out, from, gap);
            traits_type::copy(out + gap, rep, rlen);
            out += gap + rlen;
            from = at + plen;
        }
        traits_type::copy(out, from, unsigned(text + n - from));
        adopt(r->terminate(m));
        return count;
    }
    case sub_first:
    case sub_last: {
        C const* const at = flags == sub_first
                                ? forward(text, n, pat, plen)
                                : (exact ? traits_type::rfind(text, n, pat, plen)
                                         : traits_type::irfind(text, n, pat, plen));
        if (!at)
            return 0;
        edit(unsigned(at - text), plen, rep, rlen, 0, npos);
        return 1;
    }
    default:
        return 0;
    }
}

template <class C>
unsigned string_base<C>::substitute(C const* pat, unsigned plen, C c, unsigned n, unsigned flags,
                                    bool exact) {
    string_base const replacement(e_->create(c, n));
    return substitute(pat, plen, replacement.data(), replacement.size(), flags, exact);
}

// --- regular expressions ---------------------------------------------------------------

namespace detail {
// The last non-empty match in text[0, n) (or the first match, when it is
// empty), searching on from the end of each match; positions count from
// text.
template <class R, class C>
match_pair last_match(R const& re, C const* text, unsigned n, bool exact) {
    match_pair last{match_pair::none, match_pair::none};
    for (unsigned offset = 0; offset <= n;) {
        match_pair const m = re.search(text + offset, n - offset, nullptr, exact);
        if (!m.found() || (m.length == 0 && last.found()))
            break;
        last = {offset + m.position, m.length};
        if (m.length == 0)
            break;
        offset += m.position + m.length;
    }
    return last;
}
} // namespace detail

template <class C>
match_pair string_base<C>::find(regex_type const& re, unsigned pos, unsigned count, bool search,
                                bool exact_case, bool last) const {
    if (pos > size())
        detail::string_out_of_range();
    count = std::min(count, size() - pos);
    C const* const text = data() + pos;
    match_pair m = last     ? detail::last_match(re, text, count, exact_case)
                   : search ? re.search(text, count, nullptr, exact_case)
                            : re.compare(text, count, nullptr, exact_case);
    if (m.found())
        m.position += pos;
    return m;
}

template <class C>
unsigned string_base<C>::substitute(regex_type const& re, C const* rep, unsigned rlen, unsigned flags,
                                    bool exact) {
    if (!rep)
        rlen = 0;
    else if (rlen == npos)
        rlen = traits_type::length(rep);
    C const* const text = data();
    unsigned const n = size();
    switch (flags) {
    case sub_all: {
        // The matches lie in the original characters (each search resumes
        // after the last match), so they are found first and the result is
        // built in a new engine; the old one, which the replacement may
        // point into, stays intact until then.
        std::vector<match_pair> spans;
        unsigned removed = 0;
        for (unsigned offset = 0; offset <= n;) {
            match_pair const m = re.search(text + offset, n - offset, nullptr, exact);
            if (!m.found() || m.length == 0)
                break;
            spans.push_back({offset + m.position, m.length});
            removed += m.length;
            offset += m.position + m.length;
        }
        if (spans.empty())
            return 0;
        unsigned const count = unsigned(spans.size());
        unsigned const m = n - removed + count * rlen;
        engine_type* r = e_->allocate(m);
        C* out = r->data();
        unsigned from = 0;
        for (match_pair const& span : spans) {
            traits_type::copy(out, text + from, span.position - from);
            out += span.position - from;
            traits_type::copy(out, rep, rlen);
            out += rlen;
            from = span.position + span.length;
        }
        traits_type::copy(out, text + from, n - from);
        adopt(r->terminate(m));
        return count;
    }
    case sub_first:
    case sub_last: {
        // One search and one replacement: a match counts even when it is
        // empty (the replacement is then inserted there). The last-match
        // scan reports an empty match only when it found nothing else.
        match_pair const m = flags == sub_first ? re.search(text, n, nullptr, exact)
                                                : detail::last_match(re, text, n, exact);
        if (!m.found())
            return 0;
        edit(m.position, m.length, rep, rlen, 0, npos);
        return 1;
    }
    default:
        return 0;
    }
}

// --- stripping, case and layout --------------------------------------------------------

template <class C>
string_base<C>& string_base<C>::strip_set(C const* set, unsigned length, unsigned flags) {
    detail::require_text(set);
    if (length == npos)
        length = traits_type::length(set);
    if (length == 0)
        return *this;
    if ((flags & strip_back) && not_empty()) {
        C const* const last = traits_type::find_last_not_of(data(), size(), set, length);
        unsigned const keep = last ? unsigned(last - data()) + 1 : 0;
        if (keep < size())
            erase(keep);
    }
    if ((flags & strip_front) && not_empty()) {
        C const* const first = traits_type::find_first_not_of(data(), size(), set, length);
        unsigned const drop = first ? unsigned(first - data()) : size();
        if (drop)
            erase(0, drop);
    }
    return *this;
}

template <class C>
string_base<C>& string_base<C>::transform(transform_kind kind, unsigned pos, unsigned count) {
    if (pos > size())
        detail::string_out_of_range();
    count = std::min(count, size() - pos);
    if (count == 0)
        return *this;
    unique();
    C* const p = e_->data(pos);
    switch (kind) {
    case lower: traits_type::tolower(p, p, count); break;
    case upper: traits_type::toupper(p, p, count); break;
    case inverse: traits_type::invert(p, p, count); break;
    case reversed: std::reverse(p, p + count); break;
    }
    return *this;
}

template <class C>
string_base<C>& string_base<C>::expand_tabs(unsigned tab_size) {
    if (empty() || tab_size == 0 || tab_size >= 512)
        return *this;
    // The result is built through a work buffer, emptied whenever it holds
    // 1023 - tab_size characters, so a tab's spaces always fit.
    constexpr unsigned buffer_size = 1024;
    C buffer[buffer_size];
    unsigned const limit = buffer_size - 1 - tab_size;
    string_base result(e_->allocate(size()));
    result.e_->terminate(0);
    unsigned used = 0, column = 0;
    for (C const* p = data(), *end = data() + size(); p != end; ++p) {
        if (*p == C('\t')) {
            unsigned const spaces = tab_size - column % tab_size;
            traits_type::fill(buffer + used, C(' '), spaces);
            used += spaces;
            column += spaces;
        } else {
            buffer[used++] = *p;
            column = (*p == C('\n') || *p == C('\r')) ? 0 : column + 1;
        }
        if (used >= limit) {
            result.append(buffer, used);
            used = 0;
        }
    }
    result.append(buffer, used);
    return assign_by_reference(result);
}

// --- stream -------------------------------------------------------------------------------

template <class C>
unsigned string_base<C>::write(std::FILE* stream) const {
    if (!stream)
        return npos;
    bool ok;
    if constexpr (sizeof(C) == 1)
        ok = std::fputs(c_str(), stream) >= 0;
    else
        ok = std::fwrite(data(), sizeof(C), size(), stream) == size();
    return ok ? size() : npos;
}

template <class C>
unsigned string_base<C>::read(std::FILE* stream, unsigned count) {
    if (!stream)
        return npos;
    erase();
    C buffer[512];
    while (size() < count) {
        std::size_t const want = std::min<std::size_t>(512, count - size());
        std::size_t const got = std::fread(buffer, sizeof(C), want, stream);
        append(buffer, unsigned(got));
        if (got < want)
            break;
    }
    return size();
}

} // namespace zel

#endif
