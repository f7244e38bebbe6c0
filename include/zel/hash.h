// The hash table: hash_table_engine, the non-template core of the hashed
// containers, the string hash functions over hash_function<...>, and
// zel::hash<K>, the default hasher of the typed hashed containers
// (hash_set.h, hash_map.h).
//
// The engine chains separately, but all nodes of a table form one doubly
// linked list closed by a sentinel inside the engine, and the nodes of one
// bucket always stand together in that list: the bucket array holds a
// pointer to the first node of each bucket's run, and a run ends at the
// first node whose index differs (the sentinel's index is all ones, so no run
// extends into it). Iteration is a walk along the list. Bucket counts come
// from the fixed table `primes`; the table grows after an insertion of one
// value that leaves more nodes than the expand threshold, and shrinks after
// an erasure by key that leaves fewer than the contract threshold.
//
// Where the engine's contract left room, it is settled so:
//   - slot 6, assign_node(target, source): gives target a copy of source's
//     value in place and returns true, or returns false when the typed layer
//     cannot assign in place (the engine then deletes target and clones
//     source). assign() reuses this table's nodes through it.
//   - find_next(key, cursor): the next node after the cursor's node within
//     its bucket run whose key equals key, or end(): together with find()
//     it walks every node of one key.
//   - pos(i): the i-th node in iteration order; i == size() gives end(),
//     beyond that out_of_range is raised through the throw path.
//   - swap(other, relink): relink exchanges everything, nodes, buckets,
//     loading, growth, duplication and the typed layer's state
//     (swap_traits). Without relinking the two tables exchange their values
//     by copying, all or nothing, and each keeps its own settings; a table
//     that forbids duplicates keeps the first of equal values it receives.
#ifndef ZEL_HASH_H
#define ZEL_HASH_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <string_view>
#include <iterator>
#include <type_traits>
#include <utility>

#include <zel/associative.h>
#include <zel/callback.h>
#include <zel/comparator.h>
#include <zel/config.h>
#include <zel/exception.h>

namespace zel {

// How a table moves through `primes`: grow_two_steps (1) moves two
// positions per expansion or contraction, any other value one.
enum grow_type { grow_one_step = 0, grow_two_steps = 1 };

// Raises container_error through the throw path from src/hashbase, with the
// cursor's texts ("mis-matched iterator(s)", "iterator points to end()"):
// - an operation taking a cursor of this table rejects a cursor of another
//   one, and erase(cursor) rejects end();
// - insert(cursor) rejects end(), insert(first, last) a pair of cursors of
//   two tables; the copies may come from any table, this one included.
// A cursor check reports the line of the operation that asked for it.
//
// Copies are shallow and the destructor frees nothing: the typed layer
// calls clear() in its own destructor.
class ZEL_API hash_table_engine {
public:
    static constexpr unsigned prime_count = 29;
    // The bucket counts, then the terminator 4294967295. Even positions are
    // primes just above powers of two, odd ones primes near the geometric
    // midpoints.
    static unsigned const primes[prime_count + 1];
    static constexpr unsigned max_buckets = 4194319;

    struct hash_node {
        hash_node* next;
        hash_node* prev;
        std::uint32_t hash;    // the full hash of the node's key
        std::uint32_t index;   // hash modulo the bucket count
        void set_hash_indices(std::uint32_t h, std::uint32_t i) noexcept {
            hash = h;
            index = i;
        }
    };

    // A position: the owner table and a node; end() holds the sentinel.
    struct cursor {
        hash_table_engine const* owner;
        hash_node* node;
    };

    // An empty list and no bucket array; bucket count = find_prime(buckets,
    // up), which raises "requested bucket count exceeds maximum" above
    // max_buckets; then set_loading(min_load, max_load).
    hash_table_engine(unsigned buckets, grow_type growth, float min_load, float max_load,
                      bool duplicates);
    hash_table_engine(hash_table_engine const&) noexcept = default;
    hash_table_engine& operator=(hash_table_engine const&) noexcept = default;
    virtual ~hash_table_engine();

    unsigned size() const noexcept { return count_; }
    unsigned bucket_count() const noexcept { return bucket_count_; }
    bool duplicates_allowed() const noexcept { return duplicates_; }
    float max_load_factor() const noexcept { return max_load_; }
    float min_load_factor() const noexcept { return min_load_; }
    grow_type growth() const noexcept { return growth_; }
    unsigned expand_threshold() const noexcept { return expand_threshold_; }
    unsigned contract_threshold() const noexcept { return contract_threshold_; }
    hash_node* begin() const noexcept { return sentinel_.next; }
    cursor end_cursor() const noexcept { return {this, sentinel()}; }
    bool is_end(cursor const& c) const noexcept { return c.node == sentinel(); }

    // The smallest bucket count of `primes` not below n reachable from
    // position 0 in steps of the growth mode (up), or the one a step below
    // it (down, never below 257). n above max_buckets raises container_error
    // "requested bucket count exceeds maximum".
    unsigned find_prime(unsigned n, bool up) const;

    void set_growth(grow_type growth) noexcept { growth_ = growth; }
    // max load = max, raised to 1.0 when below it (or not a number); min
    // load = min, lowered to the max load when above it, raised to 0 when
    // negative (or not a number); the thresholds follow.
    void set_loading(float min_load, float max_load) noexcept;
    // When duplicates were allowed and now are not, unique() runs.
    void set_duplication(bool allow);
    // bucket count = find_prime(n, up), rehash, thresholds.
    void resize(unsigned n);

    // Inserts a copy of *value, which the typed layer's hash(void const*)
    // and equal(void const*, node) receive as the key (the library's maps,
    // whose elements are not keys, insert through link_node instead).
    // Returns the new node or, when duplicates
    // are forbidden, the node already holding an equal key (nothing is made).
    // A duplicate goes just before the first node of its key, a new key at
    // the end of its bucket's run.
    //
    // Kept behaviour: a table already at max_buckets that passes its expand
    // threshold raises "requested bucket count exceeds maximum" from the
    // insertion, with the value already in the table.
    hash_node* insert(void const* value);
    // Copies (clone_node, hashed by hash(node)) of all of other's nodes, of
    // the node at c, or of [first, last), one insertion each, with the same
    // expansion test as insert(value). A copy that throws leaves the copies
    // made before it in the table.
    void insert(hash_table_engine const& other);
    void insert(cursor const& c);
    void insert(cursor const& first, cursor const& last);

    // The node holding key, or not_found.
    hash_node* find(void const* key, hash_node* not_found) const;
    // See the banner; a cursor of another table or end() raises.
    hash_node* find_next(void const* key, cursor const* c) const;
    unsigned count(void const* key) const;
    bool contains(void const* key) const;

    // Erases the first node holding key, or (all) every node holding it;
    // then contracts when the count falls below the contract threshold.
    // Returns the number erased.
    unsigned erase(void const* key, bool all);
    // No contraction after these.
    void erase(cursor const& c);
    void erase(cursor const& first, cursor const& last);

    // Replace the contents with copies of other's values (nothing when
    // other is this table; the bucket count becomes other's when other has
    // more) or of [first, last), which may lie in this table. This table's
    // nodes are reused through assign_node. A copy that throws leaves the
    // values assigned before it, and frees the rest.
    void assign(hash_table_engine const& other);
    void assign(cursor const& first, cursor const& last);
    // Deletes every node with delete_node and frees the bucket array.
    void clear();
    void swap(hash_table_engine& other, bool relink);
    // Keeps the first node of each run of equal keys.
    void unique();
    // do_callback on each node in list order, when the callback is set.
    void visit(callback_base const& callback) const;
    hash_node* pos(unsigned i) const;

    // Raises container_error when an invariant does not hold (see the .cpp).
    void check() const;

protected:
    // The typed layer's operations, in slot order.
    virtual void do_callback(void const* callback, hash_node const* node) const;
    virtual bool equal(hash_node const* a, hash_node const* b) const = 0;
    virtual bool equal(void const* key, hash_node const* node) const = 0;
    virtual std::uint32_t hash(hash_node const* node) const = 0;
    virtual std::uint32_t hash(void const* key) const = 0;
    virtual bool assign_node(hash_node* target, hash_node const* source) = 0;
    virtual void swap_traits(hash_table_engine& other) = 0;
    virtual hash_node** allocate_buckets(unsigned n) = 0;
    virtual void deallocate_buckets(hash_node** array) = 0;
    virtual hash_node* clone_node(hash_node const* node) = 0;
    virtual hash_node* new_node(void const* value) = 0;
    virtual void delete_node(hash_node* node) = 0;

    hash_node* sentinel() const noexcept { return const_cast<hash_node*>(&sentinel_); }
    // The first node of bucket i (null when empty or without a bucket array).
    hash_node* run(std::uint32_t i) const noexcept { return buckets_ ? buckets_[i] : nullptr; }
    // Builds the bucket array if there is none yet.
    void ready() {
        if (!buckets_)
            resize(bucket_count_);
    }
    // Links a made node with hash h into bucket i just before `before` (the
    // position find_key gives: an equal node, the first node past the run,
    // or anything when the run is empty) and counts it. The typed layer's
    // inline insertion uses it, then grow().
    void link_node(hash_node* node, std::uint32_t h, std::uint32_t i, hash_node* before) noexcept;
    void grow() {
        if (count_ > expand_threshold_)
            expand();
    }
    void shrink() {
        if (count_ < contract_threshold_)
            contract();
    }
    // Erases a found node and, when all, the equal nodes following it.
    unsigned erase_found(hash_node* node, bool all);
    void expand();
    void contract();

    hash_node** buckets_;
    hash_node sentinel_;
    std::uint32_t bucket_count_;
    std::uint32_t count_;
    grow_type growth_;
    std::uint32_t expand_threshold_;
    std::uint32_t contract_threshold_;
    float max_load_;
    float min_load_;
    bool duplicates_;

private:
    struct spare;

    hash_node* find_key(void const* key, std::uint32_t h, std::uint32_t i) const;
    void resize_map(unsigned n);
    void reset_loading() noexcept;
    void unlink(hash_node* node) noexcept;
    void remove(hash_node* node);
    // Links a made node, hashed by hash(node); with duplicates forbidden a
    // node whose key is already present is deleted. grow() follows.
    void adopt(hash_node* node);
    void reset_sentinel() noexcept { sentinel_.next = sentinel_.prev = &sentinel_; }
    void check_cursor(cursor const& c, bool end_allowed, int line) const;
};

static_assert(sizeof(hash_table_engine) == (pointers_are_32_bits ? 56 : 72),
              "hash_table_engine is a vtable pointer, buckets, sentinel, six words, and a flag");

// ---------------------------------------------------------------------------
// String hashes. Each hashes a zero-terminated string given by a reference
// to its pointer; a null pointer hashes to 4294967295. The polymorphic base
// forwards operator() to the virtual hash.

template <class T>
class hash_function;

template <>
class ZEL_API hash_function<char const*> {
public:
    hash_function() noexcept = default;
    hash_function(hash_function const&) noexcept = default;
    hash_function& operator=(hash_function const&) noexcept = default;
    virtual ~hash_function();
    virtual unsigned hash(char const* const& s) const = 0;
    unsigned operator()(char const* const& s) const { return hash(s); }
};

template <>
class ZEL_API hash_function<unsigned short const*> {
public:
    hash_function() noexcept = default;
    hash_function(hash_function const&) noexcept = default;
    hash_function& operator=(hash_function const&) noexcept = default;
    virtual ~hash_function();
    virtual unsigned hash(unsigned short const* const& s) const = 0;
    unsigned operator()(unsigned short const* const& s) const { return hash(s); }
};

// P = 4294967291, the largest prime below 2^32; arithmetic wraps at 32 bits.
//   1: h = h XOR ((h*256 + c) mod P), c sign-extended (narrow)
//   2: h = h XOR (h*256 + c), reduced mod P after every fourth character
//      and at the end, c sign-extended (narrow)
//   3: a Pearson pair (a from 0, b from 1) over the bytes; v = a*256 + b,
//      result (v*65536 + v) mod P; the empty string gives 65537
//   4: the Pearson pair from (0, 0), characters at even positions feeding
//      a and those at odd positions b
//   5: h = h XOR (h*256 + c), c an unsigned byte; result h mod P
// The wide forms take the 16-bit character as it is, and for 3 and 4 its
// low byte XOR its high byte.
//
// Kept behaviour: hashes 3 and 4 share a permutation table built on first
// use by exchanging T[i] with T[rand() & 255] for each i, so their values
// depend on the state of the C runtime's rand() at that moment (and on the
// runtime: see docs/PLATFORM.md). Store them only within one process.
#define ZEL_STRING_HASH(name, type)                                                       \
    class ZEL_API name : public hash_function<type const*> {                             \
    public:                                                                               \
        unsigned hash(type const* const& s) const override;                               \
    }
ZEL_STRING_HASH(char_hash1, char);
ZEL_STRING_HASH(char_hash2, char);
ZEL_STRING_HASH(char_hash3, char);
ZEL_STRING_HASH(char_hash4, char);
ZEL_STRING_HASH(char_hash5, char);
ZEL_STRING_HASH(wchar_hash1, unsigned short);
ZEL_STRING_HASH(wchar_hash2, unsigned short);
ZEL_STRING_HASH(wchar_hash3, unsigned short);
ZEL_STRING_HASH(wchar_hash4, unsigned short);
ZEL_STRING_HASH(wchar_hash5, unsigned short);
#undef ZEL_STRING_HASH

// The permutation of hashes 3 and 4 (built by this call if not yet).
ZEL_API unsigned char const* pearson_table();

// The default hasher's string hash: the standard library's hash of the
// bytes (folded to 32 bits). Its values differ between targets (they follow
// the standard library's size_t hash), and are not those of the five hashes
// above, which take one character at a time and mix too little for large
// tables.
inline std::uint32_t hash_bytes(void const* data, std::size_t n) noexcept {
    std::uint64_t const h =
        std::hash<std::string_view>()(std::string_view(static_cast<char const*>(data), n));
    return std::uint32_t(h ^ (h >> 32));
}

// ---------------------------------------------------------------------------
// The default hasher: integers hash to their value (folded to 32 bits),
// enumerations to their underlying value, pointers to their address, and
// strings (the library's and the standard's: anything with data() and
// size() over a character type) by hash_bytes over their characters.
template <class K, class = void>
struct hash {
    std::uint32_t operator()(K const& key) const noexcept {
        if constexpr (std::is_enum_v<K>) {
            return hash<std::underlying_type_t<K>>()(static_cast<std::underlying_type_t<K>>(key));
        } else if constexpr (std::is_pointer_v<K>) {
            return hash<std::uintptr_t>()(reinterpret_cast<std::uintptr_t>(key));
        } else {
            static_assert(std::is_integral_v<K>, "zel::hash<K>: give the container a hasher");
            if constexpr (sizeof(K) > 4)
                return std::uint32_t(std::uint64_t(key) ^ (std::uint64_t(key) >> 32));
            else
                return std::uint32_t(key);
        }
    }
};

namespace detail {

template <class C>
constexpr bool is_character = std::is_same_v<C, char> || std::is_same_v<C, unsigned short> ||
                              std::is_same_v<C, wchar_t> || std::is_same_v<C, char16_t> ||
                              std::is_same_v<C, char32_t> || std::is_same_v<C, signed char> ||
                              std::is_same_v<C, unsigned char>;

template <class S, class = void>
constexpr bool is_string = false;
template <class S>
constexpr bool is_string<S, std::void_t<decltype(std::declval<S const&>().size()),
                                        decltype(*std::declval<S const&>().data())>> =
    is_character<std::remove_cv_t<std::remove_reference_t<decltype(*std::declval<S const&>().data())>>>;

} // namespace detail

template <class S>
struct hash<S, std::enable_if_t<detail::is_string<S>>> {
    std::uint32_t operator()(S const& s) const noexcept {
        return hash_bytes(s.data(), std::size_t(s.size()) * sizeof(*s.data()));
    }
};

// ---------------------------------------------------------------------------
// The typed layer: hash_container<Keys, Hash, Equal, Multi> is what
// hash_set, hash_multiset (hash_set.h), hash_map and hash_multimap
// (hash_map.h) name; the unique maps add operator[] and at.

// A node of the typed layer: the links, the hash and the index, then the value.
template <class V>
struct hash_value_node : hash_table_engine::hash_node {
    template <class... Args>
    explicit hash_value_node(Args&&... args)
        : hash_table_engine::hash_node{nullptr, nullptr, 0, 0}, value(std::forward<Args>(args)...) {}
    V value;
};

// How an iterator walks a table: along the node list.
template <class V>
struct hash_positions {
    using owner = hash_table_engine;
    using node = hash_table_engine::hash_node;
    using value_type = V;
    static V& value(node* n) noexcept { return static_cast<hash_value_node<V>*>(n)->value; }
    static node* next(owner const*, node* n) noexcept { return n->next; }
    static node* prev(owner const*, node* n) noexcept { return n->prev; }
};

namespace detail {

// A hasher may take the key, or (the string hashes) the key's c_str().
template <class H, class K>
std::uint32_t apply_hash(H const& h, K const& key) {
    if constexpr (std::is_invocable_v<H const&, K const&>)
        return std::uint32_t(h(key));
    else
        return std::uint32_t(h(key.c_str()));
}

struct no_map_members {};

template <class Keys>
constexpr bool is_map_keys = !std::is_same_v<typename Keys::key_type, typename Keys::value_type>;

} // namespace detail

// The typed table. Iterators, references and pointers stay valid until
// their element is erased: no node moves in memory. A rehash (an insertion
// that grows the table, an erasure by key that shrinks it, rehash())
// reorders the list, so a walk in progress across one may see an element
// twice or miss one. An iterator of another table passed to erase raises
// container_error "mis-matched iterator(s)", erasing end() raises
// "iterator points to end()". An element copy that throws leaves the table
// valid and leak-free: a single insertion is all or nothing, a range keeps
// what was inserted before the failing copy.
//
// Defaults: 257 buckets (the smallest count), max load 1.0, min load 0
// (never shrinks), growth by two steps of `primes` (about doubling). The
// hasher is called with a key (or, when it cannot take one, with the key's
// c_str(), so the string hashes serve zel::string keys); equal keys must
// hash alike.
template <class Keys, class Hash, class Equal, bool Multi>
class hash_container
    : protected hash_table_engine,
      public associative_relations<hash_container<Keys, Hash, Equal, Multi>, Keys, false>,
      public associative_members<hash_container<Keys, Hash, Equal, Multi>, Keys>,
      public std::conditional_t<detail::is_map_keys<Keys> && !Multi,
                                map_members<hash_container<Keys, Hash, Equal, Multi>, Keys>,
                                detail::no_map_members> {
    using engine = hash_table_engine;
    using link = hash_table_engine::hash_node;
    using members = associative_members<hash_container, Keys>;

public:
    using key_type = typename Keys::key_type;
    using value_type = typename Keys::value_type;
    using size_type = unsigned;
    using difference_type = std::ptrdiff_t;
    using hasher = Hash;
    using key_equal = Equal;
    using reference = value_type&;
    using const_reference = value_type const&;
    using node = hash_value_node<value_type>;
    using positions = hash_positions<value_type>;
    // A set's elements are keys: its iterators give const access only.
    using iterator = associative_iterator<
        positions, std::conditional_t<detail::is_map_keys<Keys>, value_type, value_type const>>;
    using const_iterator = associative_iterator<positions, value_type const>;
    using insert_result = std::conditional_t<Multi, iterator, std::pair<iterator, bool>>;
    using grow_type = zel::grow_type;

    explicit hash_container(unsigned buckets = 0, Hash const& h = Hash(), Equal const& eq = Equal())
        : engine(buckets, grow_two_steps, 0.0f, 1.0f, Multi), hash_(h), eq_(eq) {}
    hash_container(std::initializer_list<value_type> il, unsigned buckets = 0,
                   Hash const& h = Hash(), Equal const& eq = Equal())
        : hash_container(il.begin(), il.end(), buckets, h, eq) {}
    template <class It, class = typename std::iterator_traits<It>::iterator_category>
    hash_container(It first, It last, unsigned buckets = 0, Hash const& h = Hash(),
                   Equal const& eq = Equal())
        : hash_container(buckets, h, eq) {
        try {
            members::insert(first, last);
        } catch (...) {
            clear();
            throw;
        }
    }
    hash_container(hash_container const& other)
        : engine(other.bucket_count(), other.growth(), other.min_load_factor(),
                 other.max_load_factor(), Multi),
          hash_(other.hash_), eq_(other.eq_) {
        try {
            engine::assign(other);
        } catch (...) {
            clear();
            throw;
        }
    }
    hash_container(hash_container&& other)  // NOLINT(performance-noexcept-move-constructor): copies hash and equality
        : engine(0, grow_two_steps, 0.0f, 1.0f, Multi), hash_(other.hash_), eq_(other.eq_) {
        swap(other);
    }
    ~hash_container() override { clear(); }

    // Copying reuses this table's nodes where the element can be assigned;
    // a copy that throws leaves the elements copied before it.
    hash_container& operator=(hash_container const& other) {
        if (this != &other) {
            hash_ = other.hash_;
            eq_ = other.eq_;
            set_growth(other.growth());
            set_loading(other.min_load_factor(), other.max_load_factor());
            engine::assign(other);
        }
        return *this;
    }
    hash_container& operator=(hash_container&& other) noexcept { return move_assign(*this, other); }
    hash_container& operator=(std::initializer_list<value_type> il) {
        members::assign(il);
        return *this;
    }
    using members::assign;
    using members::contains;
    using members::insert;

    iterator begin() noexcept { return {this, engine::begin()}; }
    iterator end() noexcept { return {this, sentinel()}; }
    const_iterator begin() const noexcept { return {this, engine::begin()}; }
    const_iterator end() const noexcept { return {this, sentinel()}; }
    const_iterator cbegin() const noexcept { return begin(); }
    const_iterator cend() const noexcept { return end(); }

    bool empty() const noexcept { return size() == 0; }
    using engine::bucket_count;
    using engine::check;
    using engine::clear;
    using engine::growth;
    using engine::max_load_factor;
    using engine::min_load_factor;
    using engine::set_growth;
    using engine::size;
    float load_factor() const noexcept { return float(size()) / float(bucket_count()); }
    // The loading and the bucket count (see hash_table_engine::set_loading
    // for the clamping; rehash and reserve raise "requested bucket count
    // exceeds maximum" beyond the largest count).
    void max_load_factor(float f) { set_loading(min_load_factor(), f); }
    void min_load_factor(float f) { set_loading(f, max_load_factor()); }
    void rehash(unsigned n) { resize(n); }
    void reserve(unsigned n) { resize(unsigned(double(n) / double(max_load_factor()))); }
    hasher hash_function() const { return hash_; }
    key_equal key_eq() const { return eq_; }

    // Unique tables: (the element of the key, false) when the key is
    // present, else (the new element, true). Multi tables: the new element,
    // just before the other elements of its key.
    insert_result insert(value_type const& value) {
        key_type const& key = Keys::key(value);
        std::uint32_t const h = detail::apply_hash(hash_, key);
        ready();
        std::uint32_t const i = h % bucket_count_;
        link* const at = locate(key, h, i);
        if constexpr (!Multi)
            if (at->index == i)
                return {iterator(this, at), false};
        link* const n = new node(value);
        link_node(n, h, i, at);
        grow();
        if constexpr (Multi)
            return iterator(this, n);
        else
            return {iterator(this, n), true};
    }
    template <class... Args>
    insert_result emplace(Args&&... args) {
        return insert(value_type(std::forward<Args>(args)...));
    }

    iterator find(key_type const& key) { return {this, find_node(key)}; }
    const_iterator find(key_type const& key) const { return {this, find_node(key)}; }
    unsigned count(key_type const& key) const {
        auto const r = equal_range(key);
        return unsigned(std::distance(r.first, r.second));
    }
    // Equal keys stand together in iteration order.
    std::pair<iterator, iterator> equal_range(key_type const& key) {
        link* const first = find_node(key);
        return {iterator(this, first), iterator(this, past(first))};
    }
    std::pair<const_iterator, const_iterator> equal_range(key_type const& key) const {
        link* const first = find_node(key);
        return {const_iterator(this, first), const_iterator(this, past(first))};
    }

    // The number erased; may shrink the table (min load).
    unsigned erase(key_type const& key) {
        link* const p = find_node(key);
        if (p == sentinel())
            return 0;
        unsigned const n = erase_found(p, Multi);
        shrink();
        return n;
    }
    iterator erase(const_iterator pos) {
        link* const next = pos.get() && pos.owner() == this ? pos.get()->next : nullptr;
        engine::erase(cursor{pos.owner(), pos.get()});
        return {this, next};
    }
    iterator erase(const_iterator first, const_iterator last) {
        engine::erase(cursor{first.owner(), first.get()}, cursor{last.owner(), last.get()});
        return {this, last.get()};
    }

    void swap(hash_container& other) noexcept { engine::swap(other, true); }

    // Calls f(element) on each element in iteration order; f takes a
    // reference to the element (const for sets and const tables).
    template <class F>
    void visit(F&& f) {
        engine::visit(element_visitor<typename iterator::reference>(f));
    }
    template <class F>
    void visit(F&& f) const {
        engine::visit(element_visitor<value_type const&>(f));
    }

protected:
    void do_callback(void const* callback, link const* n) const override {
        call_element_visitor(callback, &value(n));
    }
    bool equal(link const* a, link const* b) const override {
        return eq_(Keys::key(value(a)), Keys::key(value(b)));
    }
    bool equal(void const* key, link const* n) const override {
        return eq_(*static_cast<key_type const*>(key), Keys::key(value(n)));
    }
    std::uint32_t hash(link const* n) const override {
        return detail::apply_hash(hash_, Keys::key(value(n)));
    }
    std::uint32_t hash(void const* key) const override {
        return detail::apply_hash(hash_, *static_cast<key_type const*>(key));
    }
    bool assign_node(link* target, link const* source) override {
        if constexpr (std::is_copy_assignable_v<value_type>) {
            static_cast<node*>(target)->value = value(source);
            return true;
        } else {
            return false;
        }
    }
    void swap_traits(hash_table_engine& other) override {
        using std::swap;
        auto& o = static_cast<hash_container&>(other);
        swap(hash_, o.hash_);
        swap(eq_, o.eq_);
    }
    link** allocate_buckets(unsigned n) override { return new link*[n]; }
    void deallocate_buckets(link** array) override { delete[] array; }
    link* clone_node(link const* n) override { return new node(value(n)); }
    link* new_node(void const* v) override { return new node(*static_cast<value_type const*>(v)); }
    void delete_node(link* n) override { delete static_cast<node*>(n); }

private:
    static value_type const& value(link const* n) noexcept {
        return static_cast<node const*>(n)->value;
    }
    // The node of key in bucket i, or the first node past the run.
    link* locate(key_type const& key, std::uint32_t h, std::uint32_t i) const {
        link* p = buckets_[i];
        if (!p)
            return sentinel();
        for (; p->index == i; p = p->next)
            if (p->hash == h && eq_(key, Keys::key(value(p))))
                break;
        return p;
    }
    link* find_node(key_type const& key) const {
        if (!buckets_ || count_ == 0)
            return sentinel();
        std::uint32_t const h = detail::apply_hash(hash_, key);
        std::uint32_t const i = h % bucket_count_;
        link* const p = locate(key, h, i);
        return p->index == i ? p : sentinel();
    }
    // The first node past the equal keys starting at first.
    link* past(link* first) const {
        if (first == sentinel())
            return first;
        link* p = first->next;
        if constexpr (Multi)
            while (p->index == first->index && p->hash == first->hash &&
                   eq_(Keys::key(value(first)), Keys::key(value(p))))
                p = p->next;
        return p;
    }

    Hash hash_;
    Equal eq_;
};

} // namespace zel

#endif
