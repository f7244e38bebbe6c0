// The deterministic automaton in front of the regular-expression matcher:
// subset construction on demand over the compiled program's state machine,
// with states and transitions cached per compiled expression.
//
// A thread is a program state (with the units of a folded string or a
// carriage-return/new-line pair consumed so far) and the counters of the
// counted closures; the automaton follows every thread at once, so a state
// of the automaton is a set of threads. The matcher wants the leftmost start
// and the longest span from it, so the threads are kept in groups by the
// position they started at, oldest first (the groups are what the
// automaton's state records; their positions are kept beside it while
// scanning). A thread reached by an older group is dropped from a younger
// one: the same future from an earlier start always wins. Once a group
// reaches the final state after consuming a unit, no new group starts and
// the groups younger than it are dropped; scanning stops when no group is
// left, and the last end reached by the oldest group that matched is the
// longest span from the leftmost start. An empty match is kept aside and
// reported only when no position yields a non-empty one, as the explorer
// does.
//
// The zero-width tests need one unit of context either side: `^` the unit
// before (kept in the state when the pattern has one), `$` and the second
// half of a 13 10 pair the unit after. So a transition takes the closure of
// a state's threads knowing the next unit, notes the final states reached,
// then consumes the unit. Units are mapped to classes that every test of the
// program treats alike; wide units above 255 share one class unless the
// program has an alphabet block or literals there, in which case their
// transitions are computed each time (still one state per unit).
//
// Every step costs a table look-up when the transition is known and a
// bounded subset construction when not, so a search costs time linear in
// the subject. The cache is bounded (see cache_budget); when full it is
// flushed and rebuilt from the current state. Patterns with back-references
// or trailing context are not served (the explorer handles them), nor are
// states that would hold too many threads or groups.
#include "regex_program.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <memory>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace zel {
namespace detail {

namespace {

constexpr unsigned npos = 0xFFFFFFFFu;
constexpr unsigned max_groups = 63;    // the keep mask of a transition is 64 bits
constexpr std::size_t max_words = 16384; // thread words per state (64 KiB): beyond, the explorer serves
constexpr std::size_t cache_budget = std::size_t(1) << 20;  // bytes per case mode

// Context of the unit before the current position (only with a `^`).
enum prev_kind : std::uint32_t { prev_line = 0, prev_return = 1, prev_other = 2 };
constexpr unsigned end_unit = 0x10000;  // the position past the subject

// What a transition does besides moving to its target: which groups (old
// ones, then the one started here) survive, and which group reached the
// final state before the unit was consumed.
struct effect {
    std::uint64_t keep;
    std::uint32_t match_group;  // npos: none
    std::uint32_t groups_before;  // old groups
    bool started;  // a group started here (it is number groups_before)
};

// Applies an effect's group bookkeeping at position q: the group it starts
// opens there, and only the groups it keeps stay, in order.
inline void regroup(effect const& fx, std::uint32_t* starts_at, unsigned& groups, unsigned q) noexcept {
    if (fx.started)
        starts_at[groups++] = q;
    if (fx.keep != (std::uint64_t(1) << groups) - 1) {
        unsigned kept = 0;
        for (unsigned g = 0; g < groups; ++g)
            if ((fx.keep >> g) & 1)
                starts_at[kept++] = starts_at[g];
        groups = kept;
    }
}

struct edge {
    std::int32_t next;   // -1: not built yet
    std::uint32_t effect;  // 0: nothing but the move
};

} // namespace

class re_automaton {
public:
    re_automaton(xbuf const& p, bool exact);
    template <class U>
    re_outcome search(U const* s, unsigned n, match_pair& span, std::uint64_t* steps);
    template <class U>
    re_outcome chain(U const* s, unsigned n, match_pair& span, unsigned& offset, std::uint64_t* steps);

private:
    using thread_list = std::vector<std::uint32_t>;  // threads of width_ words each
    struct group {
        thread_list consumers;  // threads waiting for a unit (after the closure)
        bool final = false;
    };

    // Whether thread state `st` (sub units consumed) takes unit u, and to what.
    bool consume(std::uint32_t word, unsigned u, std::uint32_t& to) const noexcept;

    void classify();
    std::int32_t intern(std::string const& key);
    std::int32_t initial();
    edge build(std::int32_t state, unsigned unit, bool cache_it, unsigned cls);
    void flush();
    edge edge_from(std::int32_t state, unsigned u, edge const*& edges);
    // Before a scan: the table (re)started and the initial state known;
    // false when the pattern is refused.
    bool ready() {
        if (refused_)
            return false;
        if (keys_.empty())
            flush();
        if (initial_ < 0)
            initial_ = initial();
        return true;
    }

    xbuf const& p_;
    re_state const* states_;
    bool exact_;
    re_unit_test units_;
    bool anchored_;
    unsigned width_;                 // words per thread: the state word and one per counter
    std::int16_t counter_of_[256];   // slot -> counter index, -1 for a plain loop
    std::uint8_t class_of_[256];
    unsigned classes_;               // byte classes, then the high class, then the end
    unsigned high_class_;            // units above 255 outside the block and the literals
    unsigned block_lower_ = 0, block_upper_ = 0;  // the alphabet block, if any
    std::uint16_t block_class_[256];
    std::vector<unsigned> high_literals_;  // literal units above 255

    bool in_block(unsigned u) const noexcept { return u >= block_lower_ && u < block_upper_ && u - block_lower_ < 256; }
    bool lone_high(unsigned u) const noexcept {
        return std::find(high_literals_.begin(), high_literals_.end(), u) != high_literals_.end();
    }
    // The class of a unit, npos for one looked at by itself.
    unsigned class_of(unsigned u) const noexcept {
        if (u < 256)
            return class_of_[u];
        if (in_block(u))
            return block_class_[u - block_lower_];
        return lone_high(u) ? npos : high_class_;
    }
    unsigned end_class_;
    unsigned stride_;
    std::vector<unsigned> sample_;   // a unit of each class
    bool eligible_[256];
    int lone_unit_ = -1;             // the only unit a match can begin with
    std::string prefix_;             // the units every match begins with (exact case, two or more)
    void find_prefix();
    // From q, the first position (or n) where a match may begin, when
    // nothing is under way.
    template <class U>
    unsigned pass_over(U const* s, unsigned q, unsigned n) const noexcept {
        if (sizeof(U) == 1 && !prefix_.empty()) {  // memchr for the first unit, memcmp for the rest
            std::size_t const k = prefix_.size();
            for (; n - q >= k; ++q) {
                void const* hit = std::memchr(s + q, prefix_[0], n - q - k + 1);
                if (!hit)
                    break;
                q = unsigned(static_cast<U const*>(hit) - s);
                if (std::memcmp(s + q + 1, prefix_.data() + 1, k - 1) == 0)
                    return q;
            }
            return n;
        }
        if (sizeof(U) == 1 && lone_unit_ >= 0) {
            void const* hit = std::memchr(s + q, lone_unit_, n - q);
            return hit ? unsigned(static_cast<U const*>(hit) - s) : n;
        }
        while (q < n && s[q] < 256 && !eligible_[s[q]])
            ++q;
        return q;
    }
    std::int32_t initial_ = -1;      // the state before the first unit

    std::vector<std::string> keys_;
    std::unordered_map<std::string, std::int32_t> index_;
    std::vector<edge> edges_;
    // The scan's fast table beside edges_: for a plain move the address of
    // the target's row (so that a step is one load), else 0 (not built, or
    // an effect to apply). Moved with the table when it grows.
    std::vector<std::uint64_t> moves_;  // 8-byte entries: their addresses leave 3 bits free
    std::vector<std::uint8_t> group_count_;  // per state
    std::vector<std::uint8_t> idle_;         // per state: no group, still starting new ones
    std::vector<std::uint8_t> stopped_;      // per state: no group, no new ones
    std::vector<effect> effects_;
    std::size_t bytes_ = 0;
    bool refused_ = false;
    unsigned flushes_ = 0;  // invalidates what a chain of searches remembers of state numbers
};

re_automaton::re_automaton(xbuf const& p, bool exact)
    : p_(p), states_(p.states()), exact_(exact), units_{p, re_cases(), exact}, anchored_(p.anchored != 0) {
    unsigned counters = 0;
    std::memset(counter_of_, 0xFF, sizeof counter_of_);
    for (unsigned i = 1; i <= p.top_state; ++i)
        if (states_[i].kind == re_count_loop)
            counter_of_[states_[i].arg & 0xFF] = std::int16_t(counters++);
    width_ = 1 + counters;
    classify();
}

// Units every test of the program (and the start set, and the zero-width
// tests' units 0, 10 and 13) treats alike share a class.
void re_automaton::classify() {
    std::unordered_map<std::string, unsigned> seen;
    auto signature = [&](unsigned u) {
        std::string sig;
        sig += char(units_.starts(u));
        sig += char(u == 0 ? 1 : u == 10 ? 2 : u == 13 ? 3 : 0);
        for (unsigned i = 1; i <= p_.top_state; ++i) {
            re_state const& st = states_[i];
            switch (st.kind) {
            case re_char: sig += char(units_.same(u, st.arg)); break;
            case re_class: sig += char(units_.class_accepts(st.arg, u)); break;
            case re_string:
                for (unsigned k = 0; k < (st.arg >> 8); ++k)
                    sig += char(units_.same(u, p_.literals()[(st.arg & 0xFF) + k]));
                break;
            default: break;
            }
        }
        return sig;
    };
    for (unsigned u = 0; u < 256; ++u) {
        auto const found = seen.emplace(signature(u), unsigned(sample_.size()));
        if (found.second)
            sample_.push_back(u);
        class_of_[u] = std::uint8_t(found.first->second);
        eligible_[u] = units_.starts(u);
    }
    // Units above 255: those of the alphabet block get classes as bytes
    // do; the rest are alike, but for literals there, which are looked at
    // one by one.
    if (p_.features & re_has_alphabet) {
        block_lower_ = p_.alphabet()[0];
        block_upper_ = p_.alphabet()[1];
    }
    for (unsigned u = block_lower_; u < block_upper_ && u - block_lower_ < 256; ++u) {
        auto const found = seen.emplace(signature(u), unsigned(sample_.size()));
        if (found.second)
            sample_.push_back(u);
        block_class_[u - block_lower_] = std::uint16_t(found.first->second);
    }
    for (unsigned i = 1; i <= p_.top_state; ++i) {
        re_state const& st = states_[i];
        if (st.kind == re_char && st.arg >= 256)
            high_literals_.push_back(st.arg);
        if (st.kind == re_string)
            for (unsigned k = 0; k < (st.arg >> 8); ++k)
                if (p_.literals()[(st.arg & 0xFF) + k] >= 256)
                    high_literals_.push_back(p_.literals()[(st.arg & 0xFF) + k]);
    }
    unsigned other = 0x100;
    while (in_block(other) || lone_high(other))
        ++other;
    high_class_ = unsigned(sample_.size());
    sample_.push_back(other);
    end_class_ = unsigned(sample_.size());
    sample_.push_back(end_unit);
    classes_ = unsigned(sample_.size());
    stride_ = classes_;
    unsigned members = 0;
    for (unsigned u = 0; u < 256; ++u)
        if (eligible_[u]) {
            ++members;
            lone_unit_ = int(u);
        }
    if (members != 1 || !exact_)
        lone_unit_ = -1;
    find_prefix();
}

// The program from its start, while it neither branches nor tests anything
// but single units, spells the units every match begins with; a memchr and
// memcmp scan finds them far faster than the automaton steps over what
// precedes them.
void re_automaton::find_prefix() {
    if (!exact_)
        return;
    unsigned st = p_.start;
    for (unsigned visited = 0; st != 0 && visited < 256 && prefix_.size() < 255; ++visited) {
        re_state const& x = states_[st];
        if (x.kind == re_link || x.kind == re_open || x.kind == re_close) {
            st = x.next1;
        } else if (x.kind == re_char && x.arg < 256) {
            prefix_ += char(x.arg);
            st = x.next1;
        } else if (x.kind == re_string) {
            unsigned const n = x.arg >> 8;
            for (unsigned i = 0; i < n; ++i) {
                unsigned const u = p_.literals()[(x.arg & 0xFF) + i];
                if (u >= 256)
                    break;
                prefix_ += char(u);
            }
            break;  // whatever follows, a unit above 255 or not, the prefix is known up to here
        } else {
            break;
        }
    }
    if (prefix_.size() < 2)
        prefix_.clear();
}

bool re_automaton::consume(std::uint32_t word, unsigned u, std::uint32_t& to) const noexcept {
    unsigned const state = word & 0xFFFF, sub = word >> 16;
    re_state const& st = states_[state];
    switch (st.kind) {
    case re_char:
        to = st.next1;
        return units_.same(u, st.arg);
    case re_class:
        to = st.next1;
        return units_.class_accepts(st.arg, u);
    case re_any:
        to = st.next1;
        return u != 10 && u != 13;
    case re_string: {
        unsigned const n = st.arg >> 8;
        to = sub + 1 == n ? st.next1 : (state | (sub + 1) << 16);
        return units_.same(u, p_.literals()[(st.arg & 0xFF) + sub]);
    }
    case re_newline:
        if (sub == 0) {
            to = u == 13 ? (state | 1u << 16) : st.next1;
            return u == 10 || u == 13;
        }
        to = st.next1;  // the 10 after a 13
        return u == 10;
    default:
        return false;
    }
}

std::int32_t re_automaton::intern(std::string const& key) {
    auto const found = index_.find(key);
    if (found != index_.end())
        return found->second;
    std::int32_t const id = std::int32_t(keys_.size());
    index_.emplace(key, id);
    keys_.push_back(key);
    edges_.resize(edges_.size() + stride_, edge{-1, 0});
    std::uintptr_t const old_base = reinterpret_cast<std::uintptr_t>(moves_.data());
    moves_.resize(moves_.size() + stride_, 0);
    std::uintptr_t const new_base = reinterpret_cast<std::uintptr_t>(moves_.data());
    if (old_base != new_base && old_base)
        for (std::uint64_t& to : moves_)
            if (to)
                to = to - old_base + new_base;
    std::uint32_t words[2];
    std::memcpy(words, key.data(), sizeof words);
    group_count_.push_back(std::uint8_t(words[1]));
    bool const matched = (words[0] >> 2) & 1;
    idle_.push_back(words[1] == 0 && !matched);
    stopped_.push_back(words[1] == 0 && matched);
    bytes_ += 2 * key.size() + stride_ * sizeof(edge) + 64;
    return id;
}

// The state before the first unit: no group, the beginning counted as a
// new line.
std::int32_t re_automaton::initial() {
    std::uint32_t const words[2] = {anchored_ ? prev_line : prev_other, 0};
    return intern(std::string(reinterpret_cast<char const*>(words), sizeof words));
}

void re_automaton::flush() {
    ++flushes_;
    keys_.clear();
    index_.clear();
    edges_.clear();
    moves_.clear();
    group_count_.clear();
    idle_.clear();
    stopped_.clear();
    effects_.clear();
    effects_.push_back(effect{});  // effect 0: nothing
    bytes_ = 0;
    initial_ = -1;
}

// The transition of `state` on `unit` (end_unit past the subject).
// Key layout, in 32-bit words: prev | matched << 2, the group count, then
// per group its thread count and its threads.
edge re_automaton::build(std::int32_t state, unsigned unit, bool cache_it, unsigned cls) {
    std::string const key = keys_[std::size_t(state)];
    std::vector<std::uint32_t> words(key.size() / 4);
    std::memcpy(words.data(), key.data(), key.size());
    unsigned const prev = words[0] & 3;
    bool matched = (words[0] >> 2) & 1;
    unsigned const old_groups = words[1];

    std::vector<thread_list> kernels;
    std::size_t at = 2;
    for (unsigned g = 0; g < old_groups; ++g) {
        unsigned const count = words[at++];
        kernels.emplace_back(words.begin() + std::ptrdiff_t(at), words.begin() + std::ptrdiff_t(at + count * width_));
        at += count * width_;
    }
    unsigned const lookahead = unit == end_unit ? 0u : unit;
    bool const started =
        !matched && (units_.starts(lookahead) || (anchored_ && prev == prev_line));
    if (started) {
        thread_list t(width_, npos);
        t[0] = p_.start;
        kernels.push_back(t);
    }

    // The closure of each group, knowing the units either side; a thread an
    // older group reached is not followed again.
    std::unordered_set<std::string> visited;
    std::vector<group> groups(kernels.size());
    thread_list todo, t(width_);
    auto const seen = [&](std::uint32_t const* w) {
        return !visited.emplace(reinterpret_cast<char const*>(w), width_ * 4).second;
    };
    for (std::size_t g = 0; g < kernels.size(); ++g) {
        todo = kernels[g];
        while (!todo.empty()) {
            std::copy(todo.end() - width_, todo.end(), t.begin());
            todo.resize(todo.size() - width_);
            if (seen(t.data()))
                continue;
            unsigned const state_no = t[0] & 0xFFFF;
            re_state const& st = states_[state_no];
            auto follow = [&](std::uint32_t next) {
                std::uint32_t const keep = t[0];
                t[0] = next;
                todo.insert(todo.end(), t.begin(), t.end());
                t[0] = keep;
            };
            switch (st.kind) {
            case re_char:
            case re_class:
            case re_any:
            case re_string:
                groups[g].consumers.insert(groups[g].consumers.end(), t.begin(), t.end());
                break;
            case re_newline:
                if ((t[0] >> 16) == 0 || (lookahead == 10 && unit != end_unit))
                    groups[g].consumers.insert(groups[g].consumers.end(), t.begin(), t.end());
                else
                    follow(st.next1);  // a lone 13
                break;
            case re_begin:
                if (prev != prev_other)
                    follow(st.next1);
                break;
            case re_end:
                if (unit == end_unit || unit == 0 || unit == 10 || unit == 13)
                    follow(st.next1);
                break;
            case re_split:
            case re_loop:
                follow(st.next1);
                follow(st.next2);
                break;
            case re_count_enter: {
                std::int16_t const c = counter_of_[st.arg & 0xFF];
                std::uint32_t const keep = c >= 0 ? t[1 + c] : 0;
                if (c >= 0)
                    t[1 + c] = 0;
                follow(st.next1);
                if (c >= 0)
                    t[1 + c] = keep;
                break;
            }
            case re_count_loop: {
                unsigned const c = 1 + unsigned(counter_of_[st.arg & 0xFF]);
                re_pair const limits = p_.closures()[st.arg >> 8];
                std::uint32_t const count = t[c];
                if (count < limits.second)
                    follow(st.next1);
                if (count >= limits.first) {
                    t[c] = npos;  // left: the count means nothing until entered again
                    follow(st.next2);
                    t[c] = count;
                }
                break;
            }
            case re_count_next: {
                unsigned const c = 1 + unsigned(counter_of_[st.arg & 0xFF]);
                re_pair const limits = p_.closures()[states_[st.next1].arg >> 8];
                std::uint32_t const count = t[c];
                std::uint32_t next = count + 1;
                if (limits.second == npos && next > limits.first)
                    next = limits.first;
                t[c] = next;
                follow(st.next1);
                t[c] = count;
                break;
            }
            case re_final:
                groups[g].final = true;
                break;
            case re_backref:
                refused_ = true;
                break;
            default:  // links, group marks, trailing context mark
                follow(st.next1);
            }
        }
        if (visited.size() * width_ > max_words)
            refused_ = true;
    }
    if (refused_)
        return edge{-1, 0};

    effect fx{};
    fx.match_group = npos;
    fx.groups_before = old_groups;
    fx.started = started;
    std::size_t live = groups.size();
    for (std::size_t g = 0; g < groups.size(); ++g)
        if (groups[g].final) {
            fx.match_group = std::uint32_t(g);
            if (g < old_groups) {  // a non-empty match: younger starts cannot win
                matched = true;
                live = g + 1;
            }
            break;
        }

    // Consume the unit; a thread an older group reached is dropped again.
    std::string next_key(8, '\0');
    unsigned new_groups = 0;
    visited.clear();
    if (unit != end_unit) {
        for (std::size_t g = 0; g < live; ++g) {
            thread_list out;
            thread_list const& in = groups[g].consumers;
            for (std::size_t i = 0; i < in.size(); i += width_) {
                std::copy(in.begin() + std::ptrdiff_t(i), in.begin() + std::ptrdiff_t(i + width_), t.begin());
                std::uint32_t to;
                if (!consume(t[0], unit, to))
                    continue;
                t[0] = to;
                if (!seen(t.data()))
                    out.insert(out.end(), t.begin(), t.end());
            }
            if (out.empty())
                continue;
            fx.keep |= std::uint64_t(1) << g;
            // Threads in a fixed order so that equal sets make one state.
            std::vector<std::string> sorted;
            for (std::size_t i = 0; i < out.size(); i += width_)
                sorted.emplace_back(reinterpret_cast<char const*>(out.data() + i), width_ * 4);
            std::sort(sorted.begin(), sorted.end());
            std::uint32_t const count = std::uint32_t(sorted.size());
            next_key.append(reinterpret_cast<char const*>(&count), 4);
            for (std::string const& s : sorted)
                next_key += s;
            ++new_groups;
        }
    }
    if (new_groups > max_groups || groups.size() > max_groups) {
        refused_ = true;
        return edge{-1, 0};
    }
    std::uint32_t const next_prev = !anchored_ ? prev_other
                                  : unit == 10 ? prev_line : unit == 13 ? prev_return : prev_other;
    std::uint32_t const head[2] = {next_prev | (matched ? 4u : 0u), new_groups};
    std::memcpy(&next_key[0], head, sizeof head);

    if (bytes_ > cache_budget) {  // full: start again from this state
        flush();
        state = intern(key);
    }
    std::int32_t const target = intern(next_key);
    // A transition that changes no group's start and reports nothing is a
    // plain move (a group started and dropped at once changes nothing). One
    // into a state without groups is not: the scan looks at what follows.
    bool const same_groups = fx.keep == (std::uint64_t(1) << old_groups) - 1 &&
                             !idle_[std::size_t(target)] && !stopped_[std::size_t(target)];
    bool const plain = same_groups && fx.match_group == npos;
    // The youngest group's match with no other change: the fast table
    // marks it (bit 0 of the address) and the scan notes the position.
    bool const youngest_match = same_groups && fx.match_group != npos && fx.match_group + 1 == old_groups;
    // A group started and kept, nothing else changed (tag 2); every group
    // dropped on the way back to the state where nothing is under way (tag 4).
    bool const busy = !idle_[std::size_t(target)] && !stopped_[std::size_t(target)];
    bool const start_kept = busy && fx.started && fx.match_group == npos &&
                            fx.keep == (std::uint64_t(1) << (old_groups + 1)) - 1;
    bool const emptied = idle_[std::size_t(target)] && fx.match_group == npos && fx.keep == 0;
    std::uint32_t effect_no = 0;
    if (!plain) {
        effect_no = std::uint32_t(effects_.size());
        effects_.push_back(fx);
        bytes_ += sizeof fx;
    }
    edge const e{target, effect_no};
    if (cache_it) {
        edges_[std::size_t(state) * stride_ + cls] = e;
        if (plain || youngest_match || start_kept || emptied)
            moves_[std::size_t(state) * stride_ + cls] =
                std::uint64_t(reinterpret_cast<std::uintptr_t>(moves_.data() + std::size_t(target) * stride_)) |
                (youngest_match ? 1u : start_kept ? 2u : emptied ? 4u : 0u);
    }
    return e;
}

// The edge from `state` on unit u, built when not known yet. `edges` is the
// caller's copy of edges_.data(), brought up to date when building moves
// the table.
inline edge re_automaton::edge_from(std::int32_t state, unsigned u, edge const*& edges) {
    unsigned const cls = u < 256 ? class_of_[u] : u == end_unit ? end_class_ : class_of(u);
    if (cls != npos) {
        edge const e = edges[std::size_t(state) * stride_ + cls];
        if (e.next >= 0)
            return e;
    }
    edge const e = cls == npos ? build(state, u, false, 0) : build(state, u, true, cls);
    edges = edges_.data();
    return e;
}

template <class U>
re_outcome re_automaton::search(U const* s, unsigned n, match_pair& span, std::uint64_t* steps) {
    if (!ready())
        return re_refused;
    std::uint32_t starts_at[max_groups + 1];
    unsigned groups = 0;
    match_pair longest{npos, npos}, empty{npos, npos};
    bool const skip = !anchored_;
    std::int32_t state = initial_;
    edge const* edges = edges_.data();
    std::uint64_t counted = 0;

    auto edge_on = [&](unsigned u) { return edge_from(state, u, edges); };
    // Applies a transition's effect at position q; false once the scan can stop.
    auto apply = [&](edge const& e, unsigned q) {
        effect const& fx = effects_[e.effect];
        if (fx.match_group != npos) {
            if (fx.match_group < fx.groups_before)
                longest = {starts_at[fx.match_group], q - starts_at[fx.match_group]};
            else if (empty.position == npos)
                empty = {q, 0};
        }
        regroup(fx, starts_at, groups, q);
        state = e.next;
        return !stopped_[std::size_t(state)];
    };

    unsigned q = 0;
    bool idle = idle_[std::size_t(state)];
    for (;;) {
        if (idle && skip) {
            // Nothing is under way: pass over the units no match begins with.
            unsigned const from = q;
            q = pass_over(s, q, n);
            counted += q - from;
        }
        // Plain moves in a tight loop; anything else leaves it.
        unsigned const from = q;
        edge e{0, 0};
        bool emptied = false;
        while (q < n) {
            if (sizeof(U) == 1) {
                std::uint64_t const* row = moves_.data() + std::size_t(state) * stride_;
                for (std::uint64_t to; q < n && (to = row[class_of_[s[q]]]) != 0;) {
                    if (to & 7) {  // the three effects the fast table carries
                        if (to & 1)
                            longest = {starts_at[groups - 1], q - starts_at[groups - 1]};
                        else if (to & 2)
                            starts_at[groups++] = q;
                        else
                            groups = 0, emptied = true;
                        to &= ~std::uint64_t(7);
                    }
                    // NOLINTNEXTLINE(performance-no-int-to-ptr): the table holds tagged row addresses
                    row = reinterpret_cast<std::uint64_t const*>(std::uintptr_t(to));
                    ++q;
                    if (emptied)
                        break;
                }
                state = std::int32_t(std::size_t(row - moves_.data()) / stride_);
                if (emptied || q == n)
                    break;
            }
            e = edge_on(s[q]);
            if (refused_)
                return re_refused;
            if (e.effect)
                break;
            state = e.next;
            ++q;
        }
        counted += q - from;
        if (emptied) {
            idle = true;
            continue;
        }
        if (q == n)
            break;
        ++counted;
        if (!apply(e, q))
            goto done;
        ++q;
        idle = idle_[std::size_t(state)];
    }
    {
        ++counted;
        edge const e = edge_on(end_unit);
        if (refused_)
            return re_refused;
        if (e.effect)
            apply(e, n);
    }
done:
    if (steps)
        *steps += counted;
    span = longest.position != npos ? longest : empty;
    return span.position != npos ? re_found : re_missed;
}

// The last match of a chain of searches, each from the end of the match
// before (an empty match ends the chain, and counts only as the first).
// A search may scan past its match to learn that no longer one follows,
// and the next one starts inside that stretch; so each search remembers,
// for the positions from its match's end to where it stopped, the state it
// was in and what followed: the group (by its rank in that state) that
// ended the longest match there, if any, and the first empty match. A
// later search that reaches a position in a state already seen there has
// the same future, takes it and stops. Each (position, state) is scanned
// once, so the chain costs time linear in the subject. `span` counts from
// `offset`, where the search that found it began.
template <class U>
re_outcome re_automaton::chain(U const* s, unsigned n, match_pair& span, unsigned& offset, std::uint64_t* steps) {
    struct after {
        std::uint32_t winner;  // rank of the group ending the longest match here, npos: none
        std::uint32_t empty;   // the first empty match from here on, npos: none
    };
    struct key_hash {  // both halves count where size_t has 32 bits
        std::size_t operator()(std::uint64_t k) const noexcept {
            return std::size_t((k >> 32) * 0x9E3779B97F4A7C15ull ^ (k & 0xFFFFFFFFu));
        }
    };
    std::unordered_map<std::uint64_t, after, key_hash> seen;
    unsigned seen_to = 0;  // no position from here on is remembered
    unsigned seen_flushes = flushes_;
    std::vector<std::int32_t> trace;      // the states from `mark` on
    std::vector<unsigned> empties;        // empty matches from `mark` on
    match_pair last{npos, npos};
    std::uint64_t counted = 0;
    bool const skip = !anchored_;

    for (unsigned o = 0;;) {
        if (!ready())
            return re_refused;
        if (seen_flushes != flushes_) {
            seen.clear();
            seen_to = 0;
            seen_flushes = flushes_;
        }
        unsigned const flushes = flushes_;
        std::uint32_t starts_at[max_groups + 1];
        unsigned groups = 0;
        match_pair longest{npos, npos}, empty{npos, npos};
        std::int32_t state = initial_;
        unsigned mark = npos, win_at = npos, win_group = npos, tail_empty = npos;
        trace.clear();
        empties.clear();

        auto edge_on = [&](unsigned u) {
            edge const* edges = edges_.data();
            return edge_from(state, u, edges);
        };
        auto apply = [&](edge const& e, unsigned q) {
            effect const& fx = effects_[e.effect];
            if (fx.match_group != npos) {
                if (fx.match_group < fx.groups_before) {
                    longest = {starts_at[fx.match_group], q - starts_at[fx.match_group]};
                    win_at = q, win_group = fx.match_group;
                } else {
                    if (empty.position == npos)
                        empty = {q, 0};
                    empties.push_back(q);
                }
            }
            regroup(fx, starts_at, groups, q);
            state = e.next;
            return !stopped_[std::size_t(state)];
        };

        unsigned q = o;
        for (;; ++q) {
            if (skip && mark == npos && idle_[std::size_t(state)]) {
                unsigned const from = q;
                q = pass_over(s, q, n);
                counted += q - from;
            }
            ++counted;
            if (q < seen_to && flushes == flushes_) {
                auto const hit = seen.find(std::uint64_t(q) << 32 | std::uint32_t(state));
                if (hit != seen.end()) {
                    if (hit->second.winner != npos) {  // its match ends where it was remembered
                        unsigned const from = starts_at[hit->second.winner];
                        longest = {from, q - from};
                    }
                    tail_empty = hit->second.empty;
                    if (empty.position == npos && tail_empty != npos)
                        empty = {tail_empty, 0};
                    break;
                }
            }
            std::int32_t const before = state;
            edge const e = edge_on(q < n ? unsigned(s[q]) : end_unit);
            if (refused_)
                return re_refused;
            bool go = q < n;
            if (e.effect)
                go = apply(e, q) && go;
            else
                state = e.next;
            if (mark == npos && longest.position != npos)
                mark = q;
            if (mark != npos)
                trace.push_back(before);
            if (!go)
                break;
        }

        // Remember this search's states from the end of its match on.
        if (mark != npos && flushes == flushes_) {
            unsigned const end = longest.position + longest.length;
            unsigned next_empty = tail_empty;
            std::size_t k = empties.size();
            for (unsigned i = unsigned(trace.size()); i-- > 0;) {
                unsigned const at = mark + i;
                if (at < end)
                    break;
                while (k > 0 && empties[k - 1] >= at)
                    next_empty = empties[--k];
                after const a{at == win_at ? win_group : npos, next_empty};
                seen.emplace(std::uint64_t(at) << 32 | std::uint32_t(trace[i]), a);
            }
            seen_to = std::max(seen_to, mark + unsigned(trace.size()));
        }

        match_pair const m = longest.position != npos ? longest : empty;
        if (m.position == npos || (m.length == 0 && last.position != npos))
            break;
        last = m, offset = o;
        if (m.length == 0)
            break;
        o = m.position + m.length;
    }
    if (steps)
        *steps += counted;
    if (last.position == npos)
        return re_missed;
    span = {last.position - offset, last.length};
    return re_found;
}

// --- the cache owned by each compiled expression ------------------------------------

struct re_cache {
    std::atomic_flag busy = ATOMIC_FLAG_INIT;
    std::unique_ptr<re_automaton> modes[2];  // inexact, exact
};

re_cache* re_cache_create() { return new re_cache; }
void re_cache_destroy(re_cache* cache) noexcept { delete cache; }

namespace {
// Runs f on the expression's automaton for the case mode: one thread at a
// time builds in the shared cache; a thread that finds it busy builds its
// own for the call.
template <class F>
re_outcome with_automaton(re_cache* cache, xbuf const& p, bool exact, F f) {
    if (p.features & (re_has_backref | re_has_trail))
        return re_refused;
    if (cache->busy.test_and_set(std::memory_order_acquire)) {
        re_automaton own(p, exact);
        return f(own);
    }
    struct release {
        std::atomic_flag& busy;
        ~release() { busy.clear(std::memory_order_release); }
    } const hold{cache->busy};
    std::unique_ptr<re_automaton>& a = cache->modes[exact];
    if (!a)
        a.reset(new re_automaton(p, exact));
    return f(*a);
}
} // namespace

re_outcome re_automaton_search(re_cache* cache, xbuf const& p, void const* subject, unsigned unit_size,
                               unsigned length, bool exact, match_pair& span, std::uint64_t* steps) {
    return with_automaton(cache, p, exact, [&](re_automaton& a) {
        return unit_size == 1 ? a.search(static_cast<unsigned char const*>(subject), length, span, steps)
                              : a.search(static_cast<unsigned short const*>(subject), length, span, steps);
    });
}

re_outcome re_automaton_rsearch(re_cache* cache, xbuf const& p, void const* subject, unsigned unit_size,
                                unsigned length, bool exact, match_pair& span, unsigned& offset,
                                std::uint64_t* steps) {
    return with_automaton(cache, p, exact, [&](re_automaton& a) {
        return unit_size == 1 ? a.chain(static_cast<unsigned char const*>(subject), length, span, offset, steps)
                              : a.chain(static_cast<unsigned short const*>(subject), length, span, offset, steps);
    });
}

} // namespace detail
} // namespace zel
