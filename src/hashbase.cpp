// hash_table_engine: the node list, the bucket runs, the choice of bucket
// counts, rehashing and every check of the hashed containers, shared by
// every element type so that errors report this file; the typed layer only
// hashes, compares, makes, copies and destroys the values. The string hash
// functions live here too.
//
// Errors:
//   text                                      raised by         line
//   "bad connection to sentinel"              check             262, 263
//   "invalid element count"                   check             272, 295
//   "invalid bucket pointer"                  check             288
//   "invalid sentinel node"                   check             296, 297
//   "requested bucket count exceeds maximum"  find_prime        1342
//   "mis-matched iterator(s)"                 cursor forms, a cursor of
//                                             another table
//   "iterator points to end()"                a single end() cursor
//   (none) out_of_range                       pos past end()
// All are container_error but the last. These reports carry the lines they
// have always carried, wherever the code now sits (ZEL_THROW_AT); a cursor
// check reports the line of the operation that asked for it.
#include <zel/hash.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace zel {

unsigned const hash_table_engine::primes[prime_count + 1] = {
    257,     367,     521,     727,     1031,    1451,    2053,    2897,    4099,    5801,
    8209,    11587,   16411,   23173,   32771,   46349,   65537,   92681,   131101,  185363,
    262147,  370759,  524309,  741457,  1048583, 1482919, 2097169, 2965847, 4194319, 4294967295u};

static_assert(hash_table_engine::max_buckets == 4194319, "the largest bucket count");

// Nodes detached from a table for reuse by an assignment; whatever is left
// when it ends is deleted.
struct hash_table_engine::spare {
    hash_table_engine& owner;
    hash_node* first;

    spare(hash_table_engine& e, hash_node* chain) noexcept : owner(e), first(chain) {}
    spare(spare const&) = delete;
    spare& operator=(spare const&) = delete;
    ~spare() {
        while (first) {
            hash_node* const next = first->next;
            owner.delete_node(first);
            first = next;
        }
    }
    hash_node* take() noexcept {
        hash_node* const n = first;
        first = n->next;
        return n;
    }
};

hash_table_engine::hash_table_engine(unsigned buckets, grow_type growth, float min_load,
                                     float max_load, bool duplicates)
    : buckets_(nullptr), sentinel_{&sentinel_, &sentinel_, 0xFFFFFFFFu, 0xFFFFFFFFu},
      bucket_count_(0), count_(0), growth_(growth), expand_threshold_(0),
      contract_threshold_(0), max_load_(1.0f), min_load_(0.0f), duplicates_(duplicates) {
    bucket_count_ = find_prime(buckets, true);
    set_loading(min_load, max_load);
}

hash_table_engine::~hash_table_engine() = default;

void hash_table_engine::do_callback(void const*, hash_node const*) const {}

void hash_table_engine::check_cursor(cursor const& c, bool end_allowed, int line) const {
    if (c.owner != this)
        zel_throw(container_error("mis-matched iterator(s)"), __FILE__, line);
    if (!end_allowed && c.node == sentinel())
        zel_throw(container_error("iterator points to end()"), __FILE__, line);
}

// ---------------------------------------------------------------------------
// Bucket counts and loading.

unsigned hash_table_engine::find_prime(unsigned n, bool up) const {
    if (n > max_buckets)
        ZEL_THROW_AT(container_error("requested bucket count exceeds maximum"), 1342);
    unsigned const step = growth_ == grow_two_steps ? 2 : 1;
    unsigned i = 0;
    while (primes[i] < n)   // the terminator stops the walk
        i += step;
    if (up)
        return primes[i];
    return primes[i >= step ? i - step : 0];
}

namespace {

// bucket count × load, truncated; a product beyond 32 bits saturates.
std::uint32_t threshold(std::uint32_t buckets, float load) noexcept {
    double const t = double(buckets) * double(load);
    return t >= 4294967295.0 ? 0xFFFFFFFFu : std::uint32_t(t);
}

} // namespace

void hash_table_engine::reset_loading() noexcept {
    expand_threshold_ = threshold(bucket_count_, max_load_);
    contract_threshold_ = threshold(bucket_count_, min_load_);
}

void hash_table_engine::set_loading(float min_load, float max_load) noexcept {
    max_load_ = max_load >= 1.0f ? max_load : 1.0f;   // a NaN fails the test too
    min_load_ = min_load > max_load_ ? max_load_ : min_load;
    if (!(min_load_ >= 0.0f))
        min_load_ = 0.0f;
    reset_loading();
}

void hash_table_engine::set_duplication(bool allow) {
    bool const was = duplicates_;
    duplicates_ = allow;
    if (was && !allow)
        unique();
}

void hash_table_engine::resize(unsigned n) {
    resize_map(find_prime(n, true));
    reset_loading();
}

void hash_table_engine::expand() {
    resize_map(find_prime(bucket_count_ + 1, true));
    reset_loading();
}

void hash_table_engine::contract() {
    resize_map(find_prime(bucket_count_ - 1, false));
    reset_loading();
}

// Rehash in list order: a node whose bucket is still empty goes to the end
// of the list, any other just before its bucket's first node, and becomes
// that bucket's first node. So every run stays together (and a run's order
// is reversed).
void hash_table_engine::resize_map(unsigned n) {
    if (buckets_ && n == bucket_count_)
        return;
    hash_node** const fresh = allocate_buckets(n + 1);
    std::fill_n(fresh, std::size_t(n) + 1, nullptr);
    bucket_count_ = n;
    hash_node** const old = buckets_;
    if (old && count_ != 0) {
        hash_node* p = sentinel_.next;
        reset_sentinel();
        while (p != &sentinel_) {
            hash_node* const next = p->next;
            std::uint32_t const i = p->hash % n;
            p->index = i;
            hash_node* const before = fresh[i] ? fresh[i] : &sentinel_;
            p->prev = before->prev;
            p->next = before;
            before->prev->next = p;
            before->prev = p;
            fresh[i] = p;
            p = next;
        }
    }
    if (old)
        deallocate_buckets(old);
    buckets_ = fresh;
}

// ---------------------------------------------------------------------------
// Linking.

void hash_table_engine::link_node(hash_node* node, std::uint32_t h, std::uint32_t i,
                                  hash_node* before) noexcept {
    hash_node*& first = buckets_[i];
    if (!first)
        before = &sentinel_;   // an empty bucket's run starts at the end
    node->set_hash_indices(h, i);
    node->prev = before->prev;
    node->next = before;
    before->prev->next = node;
    before->prev = node;
    if (!first || first == before)
        first = node;
    ++count_;
}

void hash_table_engine::unlink(hash_node* node) noexcept {
    hash_node*& first = buckets_[node->index];
    if (first == node)
        first = node->next->index == node->index ? node->next : nullptr;
    node->prev->next = node->next;
    node->next->prev = node->prev;
    --count_;
}

void hash_table_engine::remove(hash_node* node) {
    unlink(node);
    delete_node(node);
}

// The node holding key in bucket i, or the first node past the run.
hash_table_engine::hash_node* hash_table_engine::find_key(void const* key, std::uint32_t h,
                                                          std::uint32_t i) const {
    hash_node* p = buckets_[i];
    if (!p)
        return sentinel();
    for (; p->index == i; p = p->next)
        if (p->hash == h && equal(key, p))
            break;
    return p;
}

void hash_table_engine::adopt(hash_node* node) {
    std::uint32_t h;
    try {
        ready();
        h = hash(static_cast<hash_node const*>(node));
    } catch (...) {
        delete_node(node);
        throw;
    }
    std::uint32_t const i = h % bucket_count_;
    hash_node* before = sentinel();
    if (buckets_[i]) {
        hash_node* p = buckets_[i];
        for (; p->index == i; p = p->next)
            if (p->hash == h && equal(p, node))
                break;
        if (p->index == i && !duplicates_) {
            delete_node(node);
            return;
        }
        before = p;
    }
    link_node(node, h, i, before);
    grow();
}

// ---------------------------------------------------------------------------
// Insertion.

hash_table_engine::hash_node* hash_table_engine::insert(void const* value) {
    std::uint32_t const h = hash(value);
    ready();
    std::uint32_t const i = h % bucket_count_;
    hash_node* const at = find_key(value, h, i);
    if (at->index == i && !duplicates_)
        return at;
    hash_node* const node = new_node(value);
    link_node(node, h, i, at);
    grow();
    return node;
}

void hash_table_engine::insert(hash_table_engine const& other) {
    insert(cursor{&other, other.begin()}, other.end_cursor());
}

void hash_table_engine::insert(cursor const& c) {
    if (!c.owner || c.node == c.owner->sentinel())
        zel_throw(container_error("iterator points to end()"), __FILE__, __LINE__);
    adopt(clone_node(c.node));
}

void hash_table_engine::insert(cursor const& first, cursor const& last) {
    if (!first.owner || first.owner != last.owner)
        zel_throw(container_error("mis-matched iterator(s)"), __FILE__, __LINE__);
    if (first.owner == this) {
        // Copies of our own nodes would land inside the range: copy first.
        hash_node* chain = nullptr;
        hash_node** tail = &chain;
        spare made(*this, nullptr);
        for (hash_node const* p = first.node; p != last.node; p = p->next) {
            *tail = clone_node(p);
            (*tail)->next = nullptr;
            made.first = chain;
            tail = &(*tail)->next;
        }
        while (made.first)
            adopt(made.take());
        return;
    }
    hash_node const* const end = first.owner->sentinel();
    for (hash_node const* p = first.node; p != last.node && p != end; p = p->next)
        adopt(clone_node(p));
}

// ---------------------------------------------------------------------------
// Look-ups.

hash_table_engine::hash_node* hash_table_engine::find(void const* key, hash_node* not_found) const {
    if (!buckets_ || count_ == 0)
        return not_found;
    std::uint32_t const h = hash(key);
    std::uint32_t const i = h % bucket_count_;
    hash_node* const p = find_key(key, h, i);
    return p->index == i ? p : not_found;
}

hash_table_engine::hash_node* hash_table_engine::find_next(void const* key, cursor const* c) const {
    check_cursor(*c, false, __LINE__);
    std::uint32_t const i = c->node->index;
    for (hash_node* p = c->node->next; p->index == i; p = p->next)
        if (equal(key, p))
            return p;
    return sentinel();
}

unsigned hash_table_engine::count(void const* key) const {
    hash_node* p = find(key, nullptr);
    if (!p)
        return 0;
    unsigned n = 1;
    if (!duplicates_)
        return n;
    for (p = p->next; p->index == p->prev->index; p = p->next)
        if (p->hash == p->prev->hash && equal(key, p))
            ++n;
        else
            break;
    return n;
}

bool hash_table_engine::contains(void const* key) const { return find(key, nullptr) != nullptr; }

hash_table_engine::hash_node* hash_table_engine::pos(unsigned i) const {
    if (i > count_)
        ZEL_THROW(out_of_range());
    hash_node* p = sentinel_.next;
    for (; i != 0; --i)
        p = p->next;
    return p;
}

void hash_table_engine::visit(callback_base const& callback) const {
    if (!callback.is_set())
        return;
    for (hash_node const* p = sentinel_.next; p != &sentinel_; p = p->next)
        do_callback(&callback, p);
}

// ---------------------------------------------------------------------------
// Erasure.

unsigned hash_table_engine::erase_found(hash_node* node, bool all) {
    unsigned n = 0;
    if (all)
        while (node->next->index == node->index && node->next->hash == node->hash &&
               equal(node, node->next)) {
            remove(node->next);
            ++n;
        }
    remove(node);
    return n + 1;
}

unsigned hash_table_engine::erase(void const* key, bool all) {
    if (!buckets_)
        return 0;
    std::uint32_t const h = hash(key);
    std::uint32_t const i = h % bucket_count_;
    hash_node* const p = find_key(key, h, i);
    if (p->index != i)
        return 0;
    unsigned const n = erase_found(p, all);
    shrink();
    return n;
}

void hash_table_engine::erase(cursor const& c) {
    check_cursor(c, false, __LINE__);
    remove(c.node);
}

void hash_table_engine::erase(cursor const& first, cursor const& last) {
    check_cursor(first, true, __LINE__);
    check_cursor(last, true, __LINE__);
    for (hash_node* p = first.node; p != last.node && p != &sentinel_;) {
        hash_node* const next = p->next;
        remove(p);
        p = next;
    }
}

void hash_table_engine::clear() {
    hash_node* p = sentinel_.next;
    reset_sentinel();
    count_ = 0;
    if (buckets_) {
        hash_node** const old = buckets_;
        buckets_ = nullptr;
        deallocate_buckets(old);
    }
    while (p != &sentinel_) {
        hash_node* const next = p->next;
        delete_node(p);
        p = next;
    }
}

void hash_table_engine::unique() {
    for (hash_node* p = sentinel_.next; p != &sentinel_; p = p->next)
        while (p->next->index == p->index && p->next->hash == p->hash && equal(p, p->next))
            remove(p->next);
}

// ---------------------------------------------------------------------------
// Assignment and exchange.

void hash_table_engine::assign(hash_table_engine const& other) {
    if (&other == this)
        return;
    if (other.bucket_count_ > bucket_count_)
        resize(other.bucket_count_);
    assign(cursor{&other, other.begin()}, other.end_cursor());
}

void hash_table_engine::assign(cursor const& first, cursor const& last) {
    if (!first.owner || first.owner != last.owner)
        zel_throw(container_error("mis-matched iterator(s)"), __FILE__, __LINE__);
    if (first.owner == this) {
        // Keep [first, last) of our own list: erase what lies around it.
        erase(cursor{this, sentinel_.next}, first);
        erase(last, end_cursor());
        return;
    }
    // Our nodes, detached, become the copies' storage where the typed
    // layer can assign in place.
    hash_node* chain = nullptr;
    if (count_ != 0) {
        sentinel_.prev->next = nullptr;
        chain = sentinel_.next;
    }
    reset_sentinel();
    count_ = 0;
    if (buckets_)
        std::fill_n(buckets_, std::size_t(bucket_count_) + 1, nullptr);
    spare old(*this, chain);
    hash_node const* const end = first.owner->sentinel();
    for (hash_node const* p = first.node; p != last.node && p != end; p = p->next) {
        hash_node* node = nullptr;
        if (old.first) {
            node = old.take();
            bool assigned;
            try {
                assigned = assign_node(node, p);
            } catch (...) {
                delete_node(node);
                throw;
            }
            if (!assigned) {
                delete_node(node);
                node = nullptr;
            }
        }
        adopt(node ? node : clone_node(p));
    }
}

void hash_table_engine::swap(hash_table_engine& other, bool relink) {
    if (&other == this)
        return;
    if (relink) {
        // Exchange every field but the sentinels, then point the lists'
        // ends at their new sentinels.
        auto const fix = [](hash_table_engine& e) {
            if (e.count_ == 0) {
                e.reset_sentinel();
                return;
            }
            e.sentinel_.next->prev = &e.sentinel_;
            e.sentinel_.prev->next = &e.sentinel_;
        };
        hash_node const mine = sentinel_;
        hash_node const theirs = other.sentinel_;
        std::swap(buckets_, other.buckets_);
        std::swap(bucket_count_, other.bucket_count_);
        std::swap(count_, other.count_);
        std::swap(growth_, other.growth_);
        std::swap(expand_threshold_, other.expand_threshold_);
        std::swap(contract_threshold_, other.contract_threshold_);
        std::swap(max_load_, other.max_load_);
        std::swap(min_load_, other.min_load_);
        std::swap(duplicates_, other.duplicates_);
        sentinel_.next = theirs.next;
        sentinel_.prev = theirs.prev;
        other.sentinel_.next = mine.next;
        other.sentinel_.prev = mine.prev;
        fix(*this);
        fix(other);
        swap_traits(other);
        return;
    }
    // By copying: both sets of copies are made before either table changes.
    auto const copies = [](hash_table_engine& maker, hash_table_engine const& source,
                           spare& made) {
        hash_node** tail = &made.first;
        for (hash_node const* p = source.begin(); p != &source.sentinel_; p = p->next) {
            *tail = maker.clone_node(p);
            (*tail)->next = nullptr;
            tail = &(*tail)->next;
        }
    };
    spare mine(*this, nullptr);
    spare theirs(other, nullptr);
    copies(*this, other, mine);
    copies(other, *this, theirs);
    clear();
    other.clear();
    while (mine.first)
        adopt(mine.take());
    while (theirs.first)
        other.adopt(theirs.take());
}

// ---------------------------------------------------------------------------
// The engine's invariants:
//   1. a table with nodes and buckets has its first node linked back to the
//      sentinel;
//   2. and its last node linked forward to the sentinel;
//   3. the nodes along the list number count;
//   4. each bucket run starts at the node its bucket entry names (so every
//      run stands together), and every node's index is its hash modulo the
//      bucket count;
//   5. a table without buckets or nodes counts 0;
//   6. and its sentinel links to itself, forward
//   7. and back.
void hash_table_engine::check() const {
    if (buckets_ && count_ != 0) {
        if (sentinel_.next->prev != &sentinel_)
            ZEL_THROW_AT(container_error("bad connection to sentinel"), 262);   // 1
        if (sentinel_.prev->next != &sentinel_)
            ZEL_THROW_AT(container_error("bad connection to sentinel"), 263);   // 2
        unsigned n = 0;
        for (hash_node const* p = sentinel_.next; p && p != &sentinel_ && n <= count_; p = p->next)
            ++n;
        if (n != count_)
            ZEL_THROW_AT(container_error("invalid element count"), 272);        // 3
        std::uint32_t last = sentinel_.index;
        for (hash_node const* p = sentinel_.next; p != &sentinel_; p = p->next) {
            if (p->index >= bucket_count_ || p->index != p->hash % bucket_count_ ||
                (p->index != last && buckets_[p->index] != p))
                ZEL_THROW_AT(container_error("invalid bucket pointer"), 288);   // 4
            last = p->index;
        }
        return;
    }
    if (count_ != 0)
        ZEL_THROW_AT(container_error("invalid element count"), 295);            // 5
    if (sentinel_.next != &sentinel_)
        ZEL_THROW_AT(container_error("invalid sentinel node"), 296);            // 6
    if (sentinel_.prev != &sentinel_)
        ZEL_THROW_AT(container_error("invalid sentinel node"), 297);            // 7
}

// ---------------------------------------------------------------------------
// String hashes.

hash_function<char const*>::~hash_function() = default;
hash_function<unsigned short const*>::~hash_function() = default;

namespace {

constexpr std::uint32_t P = 4294967291u;

constexpr std::uint32_t mod_p(std::uint32_t h) noexcept { return h >= P ? h - P : h; }

// The character as hashes 1 and 2 take it: a narrow one sign-extended.
inline std::uint32_t wide(char c) noexcept { return std::uint32_t(std::int32_t(static_cast<signed char>(c))); }
inline std::uint32_t wide(unsigned short c) noexcept { return c; }
// As hashes 3, 4 and 5 take it.
inline std::uint32_t byte(char c) noexcept { return static_cast<unsigned char>(c); }
inline std::uint32_t byte(unsigned short c) noexcept { return c; }
inline std::uint32_t fold(char c) noexcept { return static_cast<unsigned char>(c); }
inline std::uint32_t fold(unsigned short c) noexcept { return (c & 0xFFu) ^ (c >> 8); }

template <class C>
std::uint32_t hash1(C const* s) noexcept {
    if (!s)
        return 0xFFFFFFFFu;
    std::uint32_t h = 0;
    for (; *s; ++s)
        h ^= mod_p(h * 256u + wide(*s));
    return h;
}

template <class C>
std::uint32_t hash2(C const* s) noexcept {
    if (!s)
        return 0xFFFFFFFFu;
    std::uint32_t h = 0;
    for (unsigned k = 0; s[k]; ++k) {
        h ^= h * 256u + wide(s[k]);
        if (k % 4 == 3)
            h = mod_p(h);
    }
    return mod_p(h);
}

template <class C>
std::uint32_t hash5(C const* s) noexcept {
    if (!s)
        return 0xFFFFFFFFu;
    std::uint32_t h = 0;
    for (; *s; ++s)
        h ^= h * 256u + byte(*s);
    return mod_p(h);
}

// Built once, from rand() at the first use; the function-local static keeps
// two first uses on two threads from racing.
unsigned char const* table() {
    static unsigned char const* const t = [] {
        static unsigned char built[256];
        for (unsigned i = 0; i < 256; ++i)
            built[i] = static_cast<unsigned char>(i);
        for (unsigned i = 0; i < 256; ++i) {
            unsigned const j = unsigned(std::rand()) & 255u;  // NOLINT(cert-msc50-cpp): built with rand, as documented
            unsigned char const x = built[i];
            built[i] = built[j];
            built[j] = x;
        }
        return built;
    }();
    return t;
}

inline std::uint32_t pearson_result(std::uint32_t a, std::uint32_t b) noexcept {
    std::uint32_t const v = a * 256u + b;
    return mod_p(v * 65536u + v);
}

template <class C>
std::uint32_t hash3(C const* s) {
    if (!s)
        return 0xFFFFFFFFu;
    unsigned char const* const t = table();
    std::uint32_t a = 0, b = 1;
    for (; *s; ++s) {
        std::uint32_t const c = fold(*s);
        a = t[a ^ c];
        b = t[b ^ c];
    }
    return pearson_result(a, b);
}

template <class C>
std::uint32_t hash4(C const* s) {
    if (!s)
        return 0xFFFFFFFFu;
    unsigned char const* const t = table();
    std::uint32_t a = 0, b = 0;
    for (;;) {
        if (!*s)
            break;
        a = t[a ^ fold(*s++)];
        if (!*s)
            break;
        b = t[b ^ fold(*s++)];
    }
    return pearson_result(a, b);
}

} // namespace

unsigned char const* pearson_table() { return table(); }


unsigned char_hash1::hash(char const* const& s) const { return hash1(s); }
unsigned char_hash2::hash(char const* const& s) const { return hash2(s); }
unsigned char_hash3::hash(char const* const& s) const { return hash3(s); }
unsigned char_hash4::hash(char const* const& s) const { return hash4(s); }
unsigned char_hash5::hash(char const* const& s) const { return hash5(s); }
unsigned wchar_hash1::hash(unsigned short const* const& s) const { return hash1(s); }
unsigned wchar_hash2::hash(unsigned short const* const& s) const { return hash2(s); }
unsigned wchar_hash3::hash(unsigned short const* const& s) const { return hash3(s); }
unsigned wchar_hash4::hash(unsigned short const* const& s) const { return hash4(s); }
unsigned wchar_hash5::hash(unsigned short const* const& s) const { return hash5(s); }

} // namespace zel
