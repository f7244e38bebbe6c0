// The regular-expression matcher: compare, search and rsearch of regex_base
// and wregex_base over a compiled program (see regex_program.h), written
// once over the subject's unit type.
//
// A search first asks the automaton (src/re_automaton.cpp) for the
// leftmost-longest span; the explorer below runs only for captures, on that
// span (stopping at the first path that reaches its end, which is the one
// whose captures win), and for what the automaton does not serve.
//
// The matcher explores every path of the state machine from each start
// position with an explicit backtracking stack, and keeps the longest span
// (the first one found among equal lengths, with its captures). Without
// back-references, what can happen after a state depends only on the
// state, the position, the counted closures' counters and (with trailing
// context) where the reported span ends; so a second visit to the same
// (state, position, counters, trail) from one start position can never
// find a strictly longer match, and is cut. That keeps the time polynomial
// ((a*)*b against 30 'a's takes microseconds). Visits are remembered at
// join states only (two edges lead there; the compiler marks them): any
// other state is reached again at a position only when its one
// predecessor is. Back-references make the future depend on the captures,
// so a pattern with one explores every path.
//
// When no path passes a trail mark twice, what follows the mark cannot
// depend on where the span ends: the visits after it are remembered
// without the trail, with whether they reached the final state, and a
// revisit from another trail position reports its span at once (or is
// cut) instead of exploring again, which keeps trailing context quadratic
// in the subject rather than cubic. Captures then take a second pass from
// the winning start, cut to the winning trail position.
//
// Two shortcuts keep every result: a loop over one single-unit test takes
// its whole run at once and, on backtracking, leaves after each shorter run
// in turn; a narrow subject whose matches can begin with one unit only is
// scanned for it with memchr. The library's tests hold the matcher to the
// reference exploration, which takes no shortcut and remembers nothing.
//
// Unbounded loops never run an empty repetition twice at one position:
// each loop remembers where its body was last entered, and a body that
// comes back to that position leaves instead of entering again. Such a
// repetition could only repeat the configuration it started from. A
// counted closure below a finite maximum does enter again (its count is
// part of the configuration, and another repetition may take a path the
// empty one did not); the maximum bounds the repetitions, so the time stays
// polynomial in the subject's length.
#include "regex_program.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include <zel/char_traits.h>
#include <zel/exception.h>

namespace zel {

namespace {

using namespace detail;

constexpr unsigned npos = 0xFFFFFFFFu;
constexpr match_pair no_match{npos, npos};
constexpr unsigned max_groups = 64;
constexpr unsigned max_slots = 256;

// Backtracking stack entries: a choice to resume, a value to restore on
// the way back to it, the rest of a run of repetitions to leave after
// (e_run: from position a up to b, the last one left after), or the choice
// to leave a counted closure (e_leave: its loop state, at position a).
enum entry_tag : std::uint8_t { e_choice, e_capture, e_counter, e_mark, e_trail, e_visit, e_run, e_leave };

struct entry {
    std::uint8_t tag;
    std::uint16_t index;
    std::uint32_t a;
    std::uint32_t b;
};

// A growable array whose first `inline_size` elements live in the owner's
// own storage (the call's stack frame), so that a search that stays small
// allocates nothing; beyond that it grows on the heap by blocks of
// `inline_size` and is released with its owner.
template <class T, std::size_t inline_size>
class block_array {
public:
    block_array() noexcept = default;
    block_array(block_array const&) = delete;
    block_array& operator=(block_array const&) = delete;

    T* data() noexcept { return data_; }
    std::size_t capacity() const noexcept { return capacity_; }
    // Grows to hold at least n elements, keeping the first `used`.
    void reserve(std::size_t n, std::size_t used) {
        if (n <= capacity_)
            return;
        std::size_t const grown = (n + inline_size - 1) / inline_size * inline_size;
        std::unique_ptr<T[]> more(new T[grown]);
        std::copy(data_, data_ + used, more.get());
        heap_ = std::move(more);
        data_ = heap_.get();
        capacity_ = grown;
    }

private:
    T inline_[inline_size];
    std::unique_ptr<T[]> heap_;
    T* data_ = inline_;
    std::size_t capacity_ = inline_size;
};

// How a matcher explores: remembering visits (without back-references),
// every path (with them), or every path one repetition at a time with no
// shortcut at all: the reference the library's tests hold the others to.
enum exploration { remembered, every_path, reference };

template <class U>
class matcher {
public:
    matcher(xbuf const& p, U const* s, unsigned full, bool search, bool exact, exploration how)
        : p_(p), states_(p.states()), s_(s), full_(full),
          end_(search ? full : (full < 1 ? full : 1)), stop_(end_), exact_(exact), units_{p, re_cases(), exact},
          memo_(how != remembered ? memo_none : (p.features & (re_has_count | re_has_trail)) ? memo_keys : memo_rows),
          shortcuts_(how != reference), row_words_((p.top_state + 64u) / 64u),
          single_trail_(memo_ == memo_keys && (p.features & re_has_trail) && trail_once(states_, p.top_state)) {
        // A narrow subject with one possible first unit is scanned with
        // memchr (a wide unit above 255 may begin any match).
        if (sizeof(U) == 1 && !p.anchored && exact && shortcuts_) {
            std::uint32_t const* set = p.start_set();
            unsigned members = 0;
            for (unsigned w = 0; w < 8; ++w)
                if (set[w]) {
                    members += (set[w] & (set[w] - 1)) ? 2 : 1;
                    first_unit_ = w * 32 + unsigned(__builtin_ctz(set[w]));
                }
            if (members != 1)
                first_unit_ = npos;
        }
    }

    // The matcher of compare and search. With captures and a trail mark
    // passed at most once: the span first, then the captures of the first
    // path to it.
    match_pair run(match_pair* subs) {
        if (!single_trail_ || !subs || p_.group_count == 0)
            return scan(subs);
        match_pair const span = scan(nullptr);
        if (span.position == npos)
            return span;
        best_ = no_match;
        wanted_end_ = span.position + span.length;
        explore(span.position, subs);
        return best_;
    }

    // The one start position where the automaton found the longest span,
    // ending at `limit`: the captures of the first path found to it. No
    // path beyond the limit is followed (it cannot end there).
    match_pair at(unsigned start, unsigned limit, match_pair* subs) {
        stop_ = limit_ = limit;
        explore(start, subs);
        return best_;
    }
    std::uint64_t steps() const noexcept { return steps_; }

private:
    // Every start position in turn, until a non-empty match is recorded.
    match_pair scan(match_pair* subs) {
        for (unsigned start = 0; start <= end_; ++start) {
            if (first_unit_ != npos) {
                if ((start = next_unit(start)) == npos)
                    break;
            } else if (exact_ && !p_.anchored) {
                start = next_start(start);
            }
            unsigned const prev = start ? unsigned(s_[start - 1]) : 10u;
            unsigned const unit = start < full_ ? unsigned(s_[start]) : 0u;
            if (!units_.starts(unit) && !(p_.anchored && prev == 10))
                continue;
            explore(start, subs);
            if (best_.length != 0 && best_.length != npos)
                break;
        }
        return best_;
    }

    enum memo_kind { memo_none, memo_rows, memo_keys };

    // Passes over the units before the subject end that cannot begin a
    // match (exact case, no anchor: the start set alone decides).
    unsigned next_start(unsigned start) const noexcept {
        std::uint32_t const* set = p_.start_set();
        while (start < end_ && s_[start] < 256 && !re_set_has(set, s_[start]))
            ++start;
        return start;
    }
    // The first start position from `from` on whose unit is the start
    // set's only member, or npos. The subject end is a start position too;
    // its unit is the one there, or 0 past the subject.
    unsigned next_unit(unsigned from) const noexcept {
        if (void const* hit = std::memchr(s_ + from, int(first_unit_), end_ - from))
            return unsigned(static_cast<U const*>(hit) - s_);
        unsigned const last = end_ < full_ ? unsigned(s_[end_]) : 0u;
        return last == first_unit_ ? end_ : npos;
    }

    // Whether no path passes a trail mark twice (a mark inside a repeated
    // group can be passed again).
    static bool trail_once(re_state const* states, unsigned top) noexcept {
        for (unsigned t = 1; t <= top; ++t) {
            if (states[t].kind != re_trail)
                continue;
            std::uint64_t seen[4] = {};
            unsigned todo[512];
            unsigned n = 0;
            todo[n++] = states[t].next1;
            while (n != 0) {
                unsigned const s = todo[--n];
                if (s == 0 || (seen[s / 64] >> (s % 64) & 1))
                    continue;
                if (states[s].kind == re_trail)
                    return false;
                seen[s / 64] |= std::uint64_t(1) << (s % 64);
                todo[n++] = states[s].next1;
                todo[n++] = states[s].next2;
            }
        }
        return true;
    }

    static bool single_unit(unsigned kind) noexcept { return kind == re_char || kind == re_class || kind == re_any; }
    // The test of a single-unit state on unit u (before the subject end).
    bool takes(re_state const& st, unsigned u) const noexcept {
        switch (st.kind) {
        case re_char: return units_.same(u, st.arg);
        case re_class: return units_.class_accepts(st.arg, u);
        default: return u != 10 && u != 13;
        }
    }
    // Whether the b_length units at b follow at a (a_length units remain).
    template <class V>
    bool strequ(U const* a, unsigned a_length, V const* b, unsigned b_length) const noexcept {
        if (a_length < b_length || b_length == npos)
            return false;
        for (unsigned i = 0; i < b_length; ++i)
            if (!units_.same(a[i], b[i]))
                return false;
        return true;
    }

    void push(std::uint8_t tag, unsigned index, unsigned a, unsigned b = 0) {
        if (depth_ == stack_.capacity())
            stack_.reserve(depth_ + 1, depth_);
        stack_.data()[depth_++] = {tag, std::uint16_t(index), a, b};
    }
    // Whether to go on at (state, position, counters, trail): a first visit
    // goes on and is remembered; a revisit is cut once the first visit's
    // exploration has ended (it found every length reachable from here,
    // earlier). A revisit during that exploration, through a loop that
    // came back without consuming, goes on: cutting it would let a later
    // path's captures win.
    bool go_on(unsigned state, unsigned pos) {
        unsigned const rel = pos - start_;
        if (memo_ == memo_rows) {
            std::size_t const row = std::size_t(2) * row_words_;
            if (rel >= rows_used_) {  // rows come into use cleared
                rows_.reserve((std::size_t(rel) + 1) * row, rows_used_ * row);
                std::fill(rows_.data() + rows_used_ * row, rows_.data() + (std::size_t(rel) + 1) * row, 0);
                rows_used_ = rel + 1;
            }
            std::uint64_t* const at = rows_.data() + rel * row + state / 64;
            std::uint64_t const bit = std::uint64_t(1) << (state % 64);
            if (*at & bit)
                return !(at[row_words_] & bit);
            *at |= bit;
            push(e_visit, state, pos);
            return true;
        }
        if (!keys_)
            keys_.reset(new key_memo);
        std::string& key = keys_->key;
        key.assign(reinterpret_cast<char const*>(&state), sizeof state);
        key.append(reinterpret_cast<char const*>(&rel), sizeof rel);
        unsigned const trail = !single_trail_ ? trail_ : trail_ != npos ? 0u : npos;
        key.append(reinterpret_cast<char const*>(&trail), sizeof trail);
        key.append(reinterpret_cast<char const*>(counters_), p_.slots * sizeof *counters_);
        auto const found = keys_->seen.emplace(key, 0);
        if (found.second) {
            push(e_visit, 0, unsigned(keys_->visits.size()), finals_);
            keys_->visits.push_back(&found.first->second);
            return true;
        }
        std::uint8_t const visit = found.first->second;
        if (!(visit & visit_finished))
            return true;
        if ((visit & visit_accepted) && single_trail_ && trail_ != npos && wanted_end_ == npos) {
            // Every path on from here reports the span ending at this trail.
            ++finals_;
            record(start_, pos, subs_);
        }
        return false;
    }
    void finished(entry const& e) {
        if (memo_ == memo_rows)
            rows_.data()[std::size_t(e.a - start_) * 2 * row_words_ + row_words_ + e.index / 64] |=
                std::uint64_t(1) << (e.index % 64);
        else
            *keys_->visits[e.a] = visit_finished | (finals_ != e.b ? visit_accepted : 0);
    }

    bool returned_empty(re_state const& st, unsigned pos) const noexcept {
        return (st.kind == re_loop || st.kind == re_count_loop) && marks_[st.arg & 0xFF] == pos;
    }

    // Leaves a counted closure: its counter means nothing until the closure
    // is entered again (which sets it to 0), so it is cleared, and visits
    // that differ only in how often a closure left behind ran are one.
    unsigned leave(re_state const& loop) {
        unsigned const slot = loop.arg & 0xFF;
        push(e_counter, slot, counters_[slot]);
        counters_[slot] = npos;
        return loop.next2;
    }

    void record(unsigned start, unsigned pos, match_pair* subs) {
        unsigned const end = trail_ != npos ? trail_ : pos;
        unsigned const length = end - start;
        if (best_.length != npos && length <= best_.length)
            return;
        best_ = {start, length};
        if (subs)
            std::memcpy(subs, captures_, p_.group_count * sizeof(match_pair));
    }

    void explore(unsigned start, match_pair* subs);

    xbuf const& p_;
    re_state const* states_;
    U const* s_;
    unsigned full_;  // the subject's length: strings and back-references reach this far
    unsigned end_;   // the subject end: single-unit tests stop here
    unsigned stop_;  // single-unit tests stop here (end_, or a span's end)
    unsigned limit_ = npos;  // nothing is consumed past this (a span's end)
    std::uint64_t steps_ = 0;
    bool exact_;
    re_unit_test units_;
    memo_kind memo_;
    bool shortcuts_;  // runs of one-unit loops at once; memchr to a lone first unit
    unsigned row_words_;
    match_pair best_ = no_match;

    bool single_trail_;     // no path passes a trail mark twice
    unsigned finals_ = 0;   // final states reached so far (or stood for)
    unsigned wanted_end_ = npos;  // the captures' pass: the winning span's end
    match_pair* subs_ = nullptr;

    unsigned start_ = 0;
    unsigned trail_ = npos;
    match_pair captures_[max_groups];
    std::uint32_t counters_[max_slots];
    std::uint32_t marks_[max_slots];  // where each loop last entered its body
    unsigned first_unit_ = npos;  // the start set's only member, if it has one
    block_array<entry, 1024> stack_;  // the backtracking stack
    std::size_t depth_ = 0;
    block_array<std::uint64_t, 512> rows_;  // visited, then finished, bits per position
    unsigned rows_used_ = 0;
    // With counters or trailing context the visits are remembered by key
    // (state, position, trail, counters); made on the first visit.
    enum : std::uint8_t { visit_finished = 1, visit_accepted = 2 };
    struct key_memo {
        std::string key;
        std::unordered_map<std::string, std::uint8_t> seen;  // visit_ bits
        std::vector<std::uint8_t*> visits;
    };
    std::unique_ptr<key_memo> keys_;
};

template <class U>
void matcher<U>::explore(unsigned start, match_pair* subs) {
    start_ = start;
    subs_ = subs;
    trail_ = npos;
    for (unsigned i = 0; i < p_.group_count; ++i)
        captures_[i] = no_match;
    for (unsigned i = 0; i < p_.slots; ++i)
        marks_[i] = counters_[i] = npos;
    rows_used_ = 0;
    if (keys_) {
        keys_->seen.clear();
        keys_->visits.clear();
    }
    depth_ = 0;

    unsigned state = p_.start, pos = start;
    for (;;) {
        re_state const& st = states_[state];
        unsigned next = st.next1;
        ++steps_;
        // A loop whose body came back empty leaves at once; that step is
        // not a revisit (the path goes on with the captures it made).
        if (memo_ != memo_none && (st.flags & re_join) && !returned_empty(st, pos) && !go_on(state, pos))
            goto fail;
        switch (st.kind) {
        case re_char:
        case re_class:
        case re_any:
            if (pos < stop_ && takes(st, s_[pos])) {
                ++pos;
                break;
            }
            goto fail;
        case re_string: {
            unsigned const n = st.arg >> 8;
            if (pos < end_ && n <= limit_ - pos && strequ(s_ + pos, full_ - pos, p_.literals() + (st.arg & 0xFF), n)) {
                pos += n;
                break;
            }
            goto fail;
        }
        case re_backref: {
            match_pair const c = captures_[st.arg];
            if (pos < end_ && c.position != npos && strequ(s_ + pos, full_ - pos, s_ + c.position, c.length)) {
                pos += c.length;
                break;
            }
            goto fail;
        }
        case re_begin:
            if (pos == 0 || s_[pos - 1] == 10 || s_[pos - 1] == 13)
                break;
            goto fail;
        case re_end:
            if (pos == end_ || s_[pos] == 10 || s_[pos] == 0 || s_[pos] == 13)
                break;
            goto fail;
        case re_newline:
            if (pos < stop_ && (s_[pos] == 10 || s_[pos] == 13)) {
                pos += (s_[pos] == 13 && pos + 1 < full_ && s_[pos + 1] == 10) ? 2 : 1;
                if (pos <= limit_)
                    break;
            }
            goto fail;
        case re_split:
            push(e_choice, st.next2, pos);
            break;
        case re_open:
            push(e_capture, st.arg, captures_[st.arg].position, captures_[st.arg].length);
            captures_[st.arg] = {pos, npos};
            break;
        case re_close:
            push(e_capture, st.arg, captures_[st.arg].position, captures_[st.arg].length);
            captures_[st.arg].length = pos - captures_[st.arg].position;
            break;
        case re_loop: {
            if (marks_[st.arg] == pos) {  // the body came back empty: leave
                next = st.next2;
                break;
            }
            re_state const& body = states_[st.next1];
            // After a trail mark passed once, the loop goes one repetition
            // at a time instead, so that each position it reaches is
            // remembered: another trail position reaches them again.
            if (shortcuts_ && single_unit(body.kind) && body.next1 == state && !(single_trail_ && trail_ != npos)) {
                // A loop over one single-unit test takes its whole run at
                // once and leaves after it; the run entry then leaves after
                // one repetition fewer each time it is popped, down to none:
                // the order in which the repetitions would be undone one by
                // one. The body never comes back empty, so the loop's mark
                // is not needed. When the loop leaves straight to the final
                // state, the shorter ends could only record shorter spans.
                unsigned const from = pos;
                while (pos < stop_ && takes(body, s_[pos]))
                    ++pos;
                if (pos != from && states_[st.next2].kind != re_final)
                    push(e_run, st.next2, from, pos);
                next = st.next2;
                break;
            }
            push(e_choice, st.next2, pos);
            push(e_mark, st.arg, marks_[st.arg]);
            marks_[st.arg] = pos;
            break;
        }
        case re_count_enter:
            push(e_counter, st.arg, counters_[st.arg]);
            push(e_mark, st.arg, marks_[st.arg]);
            counters_[st.arg] = 0;
            marks_[st.arg] = npos;
            break;
        case re_count_loop: {
            unsigned const slot = st.arg & 0xFF;
            re_pair const limits = p_.closures()[st.arg >> 8];
            unsigned const count = counters_[slot];
            bool const may_leave = count >= limits.first;
            // The body came back empty with the minimum reached: an
            // unbounded closure (whose count stops at the minimum) leaves,
            // since another repetition could only repeat the configuration
            // it started from. Below a finite maximum the count is part of
            // the configuration and another repetition may take a path the
            // empty one did not ((c?|b){1,2} on "b"): it is entered again,
            // and the maximum bounds how often.
            bool const may_enter =
                count < limits.second && !(may_leave && limits.second == npos && marks_[slot] == pos);
            if (!may_enter) {
                if (!may_leave)
                    goto fail;
                next = leave(st);
                break;
            }
            if (may_leave)
                push(e_leave, state, pos);
            push(e_mark, slot, marks_[slot]);
            marks_[slot] = pos;
            break;
        }
        case re_count_next: {
            re_pair const limits = p_.closures()[states_[st.next1].arg >> 8];
            unsigned count = counters_[st.arg] + 1;
            if (limits.second == npos && count > limits.first)
                count = limits.first;  // past the minimum an unbounded count no longer matters
            push(e_counter, st.arg, counters_[st.arg]);
            counters_[st.arg] = count;
            break;
        }
        case re_trail:
            if (wanted_end_ != npos && pos != wanted_end_)
                goto fail;
            push(e_trail, 0, trail_);
            trail_ = pos;
            break;
        case re_final:
            ++finals_;
            if (wanted_end_ != npos) {  // the first path to the winning span
                if ((trail_ != npos ? trail_ : pos) != wanted_end_)
                    goto fail;
                record(start, pos, subs);
                return;
            }
            record(start, pos, subs);
            if ((pos == full_ || pos == limit_) && trail_ == npos)
                return;  // nothing longer is possible from this start (or wanted: the span is known)
            goto fail;
        default:  // linking and zero-width states
            break;
        }
        state = next;
        continue;
    fail:
        for (;;) {
            if (depth_ == 0)
                return;
            entry const e = stack_.data()[--depth_];
            switch (e.tag) {
            case e_choice: state = e.index; pos = e.a; break;
            case e_leave:
                pos = e.a;
                state = leave(states_[e.index]);
                break;
            case e_run:
                state = e.index;
                pos = e.b - 1;
                if (pos != e.a)
                    push(e_run, e.index, e.a, pos);
                break;
            case e_capture: captures_[e.index] = {e.a, e.b}; continue;
            case e_counter: counters_[e.index] = e.a; continue;
            case e_mark: marks_[e.index] = e.a; continue;
            case e_trail: trail_ = e.a; continue;
            case e_visit: finished(e); continue;
            }
            break;
        }
    }
}

unsigned measure(void const* subject, unsigned unit_size) {
    return unit_size == 1 ? unsigned(std::strlen(static_cast<char const*>(subject)))
                          : char_traits<unsigned short>::length(static_cast<unsigned short const*>(subject));
}

// A search asks the automaton where the leftmost-longest span lies and, for
// captures, runs the explorer on that span alone; compare (whose reach is
// bounded by the pattern) and what the automaton does not serve go to the
// explorer.
template <class U>
match_pair run_match(xbuf const& p, detail::re_cache* cache, void const* subject,
                     unsigned length, bool search, bool exact, match_pair* subs, re_path path,
                     std::uint64_t* steps) {
    if (search && path == re_path::automaton) {
        match_pair span;
        re_outcome const found = re_automaton_search(cache, p, subject, sizeof(U), length, exact, span, steps);
        if (found == re_missed)
            return no_match;
        if (found == re_found) {
            if (!subs || p.group_count == 0)
                return span;
            matcher<U> m(p, static_cast<U const*>(subject), length, true, exact, remembered);
            match_pair const captured = m.at(span.position, span.position + span.length, subs);
            if (steps)
                *steps += m.steps();
            return captured;
        }
    }
    exploration const how = path == re_path::reference ? reference
                          : (p.features & re_has_backref) ? every_path : remembered;
    matcher<U> m(p, static_cast<U const*>(subject), length, search, exact, how);
    match_pair const found = m.run(subs);
    if (steps)
        *steps += m.steps();
    return found;
}

// run_match over a subject of either unit width.
match_pair match_any_width(unsigned unit_size, xbuf const& p, detail::re_cache* cache, void const* subject,
                           unsigned length, bool search, bool exact, match_pair* subs, re_path path,
                           std::uint64_t* steps) {
    return unit_size == 1 ? run_match<unsigned char>(p, cache, subject, length, search, exact, subs, path, steps)
                          : run_match<unsigned short>(p, cache, subject, length, search, exact, subs, path, steps);
}

} // namespace

re_case_map const& detail::re_cases() {
    static re_case_map const map = [] {
        re_case_map m;
        for (unsigned c = 0; c < 256; ++c) {
            m.lower[c] = static_cast<unsigned char>(std::tolower(int(c)));
            m.upper[c] = static_cast<unsigned char>(std::toupper(int(c)));
        }
        return m;
    }();
    return map;
}

match_pair detail::regex_probe::search(regex_base const& re, void const* subject, unsigned unit_size,
                                       unsigned length, match_pair* subs, bool exact, re_path path,
                                       std::uint64_t* steps) {
    if (!re.program_ || re.status_ != regex_base::ok)
        return no_match;
    return match_any_width(unit_size, *re.program_, re.cache_, subject, length, true, exact, subs, path, steps);
}

match_pair regex_base::match(void const* subject, unsigned unit_size, unsigned length, bool search,
                             bool exact_case, match_pair* subs) const {
    if (!program_ || status_ != ok || !subject)
        return no_match;
    if (length == npos)
        length = measure(subject, unit_size);
    return match_any_width(unit_size, *program_, cache_, subject, length, search, exact_case, subs, re_path::automaton,
                           nullptr);
}

namespace {

// Searches again after each match; an empty match ends the scan, and is
// the result only when it is the first match found. The automaton runs the
// whole chain at once (in linear time) and the explorer then takes the
// captures on the last span alone; what it does not serve searches again
// and again.
template <class U>
match_pair run_rmatch(xbuf const& p, detail::re_cache* cache, void const* subject, unsigned length, bool exact,
                      match_pair* subs, re_path path, std::uint64_t* steps) {
    U const* const s = static_cast<U const*>(subject);
    if (path == re_path::automaton) {
        match_pair span;
        unsigned offset = 0;
        re_outcome const found = re_automaton_rsearch(cache, p, subject, sizeof(U), length, exact, span, offset, steps);
        if (found == re_missed)
            return no_match;
        if (found == re_found) {
            if (!subs || p.group_count == 0)
                return span;
            matcher<U> m(p, s + offset, length - offset, true, exact, remembered);
            match_pair const captured = m.at(span.position, span.position + span.length, subs);
            if (steps)
                *steps += m.steps();
            return captured;
        }
    }
    match_pair last = no_match;
    match_pair found[max_groups];
    for (unsigned offset = 0; offset <= length;) {
        match_pair const m = run_match<U>(p, cache, s + offset, length - offset, true, exact,
                                          subs ? found : nullptr, path, steps);
        if (!m.found() || (m.length == 0 && last.found()))
            break;
        last = m;
        if (subs)
            std::memcpy(subs, found, p.group_count * sizeof(match_pair));
        if (m.length == 0)
            break;
        offset += m.position + m.length;
    }
    return last;
}

// run_rmatch over a subject of either unit width.
match_pair rmatch_any_width(unsigned unit_size, xbuf const& p, detail::re_cache* cache, void const* subject,
                            unsigned length, bool exact, match_pair* subs, re_path path, std::uint64_t* steps) {
    return unit_size == 1 ? run_rmatch<unsigned char>(p, cache, subject, length, exact, subs, path, steps)
                          : run_rmatch<unsigned short>(p, cache, subject, length, exact, subs, path, steps);
}

} // namespace

match_pair detail::regex_probe::rsearch(regex_base const& re, void const* subject, unsigned unit_size,
                                        unsigned length, match_pair* subs, bool exact, re_path path,
                                        std::uint64_t* steps) {
    if (!re.program_ || re.status_ != regex_base::ok)
        return no_match;
    return rmatch_any_width(unit_size, *re.program_, re.cache_, subject, length, exact, subs, path, steps);
}

match_pair regex_base::rmatch(void const* subject, unsigned unit_size, unsigned length,
                              bool exact_case, match_pair* subs) const {
    if (!program_ || status_ != ok || !subject)
        return no_match;
    if (length == npos)
        length = measure(subject, unit_size);
    return rmatch_any_width(unit_size, *program_, cache_, subject, length, exact_case, subs, re_path::automaton, nullptr);
}

// --- the public forms -------------------------------------------------------------------

namespace {
template <class C>
C const* part(string_base<C> const& s, unsigned pos, unsigned& count) {
    if (pos > s.size())
        throw out_of_range();
    count = std::min(count, s.size() - pos);
    return s.data() + pos;
}
} // namespace

#define ZEL_REGEX_FORMS(cls, C, name, call)                                                     \
    match_pair cls::name(C const* subject, unsigned length, match_pair* subs, bool exact_case) const { \
        return call;                                                                            \
    }                                                                                           \
    match_pair cls::name(string_base<C> const& s, unsigned pos, unsigned count, match_pair* subs, \
                         bool exact_case) const {                                               \
        C const* const subject = part(s, pos, count);                                           \
        unsigned const length = count;                                                          \
        return call;                                                                            \
    }

ZEL_REGEX_FORMS(regex_base, char, compare, match(subject, 1, length, false, exact_case, subs))
ZEL_REGEX_FORMS(regex_base, char, search, match(subject, 1, length, true, exact_case, subs))
ZEL_REGEX_FORMS(regex_base, char, rsearch, rmatch(subject, 1, length, exact_case, subs))
ZEL_REGEX_FORMS(wregex_base, unsigned short, compare, match(subject, 2, length, false, exact_case, subs))
ZEL_REGEX_FORMS(wregex_base, unsigned short, search, match(subject, 2, length, true, exact_case, subs))
ZEL_REGEX_FORMS(wregex_base, unsigned short, rsearch, rmatch(subject, 2, length, exact_case, subs))
#undef ZEL_REGEX_FORMS

} // namespace zel
