// The regular-expression compiler: a table-driven LL(1) parser over the
// pattern's 16-bit units that emits a postfix list of parse operations,
// then three passes (literal folding, the state machine, the start set) and
// the packing of everything into one compiled program (xbuf). Also the
// object side of regex_base and wregex_base: construction, copies, status
// and the predefined pattern texts.
//
// Every compile error goes through parse_op_buffer::fail, whose throw site
// sits on line 248, the line compile errors have always reported; compile
// catches it and leaves the code and location in the expression. All
// working tables have fixed sizes (127 units, 256 operations, 32 classes,
// 31 closures, 64 groups, 255 states): a compile allocates nothing but the
// program.
#include "regex_program.h"

#include <cctype>
#include <cstring>
#include <initializer_list>

#include <zel/char_traits.h>
#include <zel/exception.h>

namespace zel {

char const* const re_pat_double = "-?((\\d+\\.\\d*)|(\\d+)|(\\.\\d+))([eE][+\\-]?\\d+)?";
char const* const re_pat_identifier = "_*[a-zA-Z][0-9a-zA-Z_]*";
char const* const re_pat_integer = "-?[0-9]+";

allocator_engine& regex_heap() noexcept {
    static std_heap heap;
    return heap;
}

namespace {

using namespace detail;

constexpr unsigned npos = 0xFFFFFFFFu;
constexpr unsigned max_units = 127, max_ops = 256, max_classes = 32, max_closures = 31,
                   max_groups = 64, max_states = 255;

char const* const messages[] = {
    "ready to compile",
    "OK - no errors",
    "unclosed quotation marks",
    "invalid escape sequence",
    "invalid macro name",
    "invalid back-reference",
    "empty closure specifier",
    "unclosed closure specifier",
    "invalid closure specifier",
    "too many closure specifiers in pattern",
    "empty character class",
    "unclosed character class",
    "invalid character class",
    "too many character classes in pattern",
    "empty subexpression",
    "unclosed subexpression",
    "invalid subexpression",
    "too many subexpressions in pattern",
    "un-escaped white space in pattern",
    "null pattern pointer",
    "pattern has zero length",
    "pattern is too big",
    "syntax error",
};

// Token classes: the grammar's terminals.
enum terminal : std::uint8_t {
    t_end = 1, t_caret, t_dollar, t_slash, t_bar, t_prefix, t_lbrace, t_comma, t_rbrace,
    t_star, t_plus, t_quest, t_dot, t_literal, t_macro, t_backref, t_lparen, t_rparen,
    t_lbracket, t_rbracket, t_class_macro, t_dash, t_colon,
    terminal_count
};

// The class of a unit outside quotes and escapes; codes from 192 up are
// literals like every code the table does not list.
std::uint8_t table_class(unsigned u) noexcept {
    switch (u) {
    case 0: return t_end;
    case '^': return t_caret;
    case '$': return t_dollar;
    case '/': return t_slash;
    case '|': return t_bar;
    case '{': return t_lbrace;
    case ',': return t_comma;
    case '}': return t_rbrace;
    case '*': return t_star;
    case '+': return t_plus;
    case '?': return t_quest;
    case '.': return t_dot;
    case '(': return t_lparen;
    case ')': return t_rparen;
    case '[': return t_lbracket;
    case ']': return t_rbracket;
    case '-': return t_dash;
    case ':': return t_colon;
    default: return t_literal;
    }
}

// Parse operation codes.
enum op_code : std::uint8_t {
    op_begin = 2, op_end = 3, op_trail = 4, op_alternate = 5, op_prefix = 6, op_star = 10,
    op_plus = 11, op_optional = 12, op_any = 13, op_literal = 14, op_backref = 16,
    op_concat = 24, op_group_end = 25, op_empty_group = 26, op_newline = 28, op_string = 29,
    op_counted = 44, op_class = 48
};

// Grammar symbols: terminals 1..23, nonterminals from 32, actions from 64.
enum nonterminal : std::uint8_t {
    n_pattern = 32, n_expression, n_tail, n_alternatives, n_more, n_branch, n_rest, n_close,
    n_sequence, n_items, n_item, n_closed, n_closure, n_count, n_atom, n_group, n_class,
    n_negation, n_body, n_members, n_member, n_range,
    nonterminal_end
};
enum action : std::uint8_t {
    a_trailing = 64, a_alternate, a_begin, a_end, a_concatenate, a_prefix_start, a_prefix_end,
    a_minimum, a_maximum, a_close_count, a_counted, a_star, a_plus, a_optional, a_set, a_any,
    a_literal, a_macro, a_backref, a_open, a_close_group, a_empty_group, a_class_start,
    a_class_end, a_negate, a_named, a_class_macro, a_range_start, a_range_end, a_single
};

struct token {
    std::uint16_t value;
    std::uint8_t cls;
    std::uint8_t pos;
};

struct parse_op {
    std::uint16_t value;
    std::uint8_t code;
    std::uint8_t pos;
};

struct class_def {
    re_set low;      // codes 0..255
    re_set alpha;    // codes of the alphabet block, from its lower bound
    std::uint32_t lower, upper;
};

struct fragment {
    unsigned start, end;
};

} // namespace

// The compiler's working state for one compile.
struct parse_op_buffer {
    parse_op_buffer(unsigned lower, unsigned upper) noexcept : alpha_lower(lower), alpha_upper(upper) {}

    [[noreturn]] void fail(unsigned code, unsigned position = npos);
    void run(unsigned short const* text, unsigned length);

    unsigned status = regex_base::ok;
    unsigned location = npos;

    std::uint16_t pattern[max_units + 3] = {};  // room to look two units past the end
    unsigned length = 0;
    unsigned scan = 0;
    bool quoted = false, in_class = false, negated = false, in_closure = false, anchored = false;
    unsigned alpha_lower, alpha_upper;

    parse_op ops[max_ops];
    unsigned op_count = 0;
    class_def classes[max_classes];
    unsigned class_count = 0;
    class_def scratch;
    re_pair closures[max_closures];
    unsigned closure_count = 0;
    re_pair groups[max_groups];
    unsigned group_count = 0;
    std::uint8_t open_groups[max_groups];
    unsigned open_count = 0;
    std::uint16_t literals[max_units];
    unsigned literal_count = 0;

    re_state states[max_states + 1] = {};
    unsigned top_state = 0;
    unsigned start_state = 0;
    unsigned slots = 0;
    std::uint8_t features = 0;
    re_set start_set = {};

private:
    token read_token();
    token read_escape(unsigned at);
    bool read_number(unsigned& value);
    void parse();
    void act(std::uint8_t a);
    void emit(std::uint8_t code, unsigned value, unsigned pos);
    void emit_class();
    void counted();
    void named_class();
    void add_code(unsigned c);
    void add_range(unsigned a, unsigned b);
    void fold();
    void build();
    unsigned new_state(std::uint8_t kind, unsigned arg = 0);
    void compute_start_set();

    token last{};  // the token matched most recently: the actions' current token
    unsigned minimum = 0, maximum = 0;
    std::uint16_t range_from = 0;
};

// The grammar, with its actions in brackets (the table below is built
// from it; a token with no entry is a syntax error, code 22):
//
//   pattern      expression end
//   expression   alternatives tail
//   tail         / alternatives [trailing] | (empty)
//   alternatives branch more
//   more         | branch [alternate] more | (empty)
//   branch       ^ [begin] rest | $ [end] | sequence close
//   rest         sequence [concatenate] close | close
//   close        $ [end] [concatenate] | (empty)
//   sequence     item items
//   items        item [concatenate] items | (empty)
//   item         prefix [prefix-start] closed [prefix-end] | closed
//   closed       atom closure
//   closure      { [minimum] count [counted] | * [star] | + [plus]
//                | ? [optional] | (empty)
//   count        } [close-count] | , [maximum] } [close-count]
//   atom         class [set] | . [any] | literal [literal] | macro [macro]
//                | back-reference [back-reference] | ( [open] group
//   group        expression ) [close-group] | [empty-group] ) [close-group]
//   class        [ [class-start] negation body ] [class-end]
//   negation     ^ [negate] | (empty)
//   body         : [named] : | member members
//   members      member members | (empty)
//   member       literal [range-start] range | class-macro [class-macro]
//   range        - literal [range-end] | [single]
//
// Consequences: / binds loosest and stands once per level; ^ only opens
// and $ only closes a branch; one postfix operator per atom; a named class
// is a whole class. The look-ahead token is read only when a terminal or a
// nonterminal needs it, so the actions after a terminal (entering a class
// or a closure specifier, reading its numbers) run before the next unit is
// tokenized, in the mode they set. The prefix operator is reserved: no
// unit produces its token.
//
// Records the code and the location (the scan position when none is given)
// and raises; compile catches it.
void parse_op_buffer::fail(unsigned code, unsigned position) {
    status = code;
    location = position == npos ? scan : position;
    ZEL_THROW(invalid_argument(messages[code]));
}

namespace {

// The productions, each a 0-terminated right-hand side.
constexpr std::uint8_t productions[][8] = {
    /*  0 */ {n_expression, t_end},
    /*  1 */ {n_alternatives, n_tail},
    /*  2 */ {t_slash, n_alternatives, a_trailing},
    /*  3 */ {},
    /*  4 */ {n_branch, n_more},
    /*  5 */ {t_bar, n_branch, a_alternate, n_more},
    /*  6 */ {},
    /*  7 */ {t_caret, a_begin, n_rest},
    /*  8 */ {t_dollar, a_end},
    /*  9 */ {n_sequence, n_close},
    /* 10 */ {n_sequence, a_concatenate, n_close},
    /* 11 */ {n_close},
    /* 12 */ {t_dollar, a_end, a_concatenate},
    /* 13 */ {},
    /* 14 */ {n_item, n_items},
    /* 15 */ {n_item, a_concatenate, n_items},
    /* 16 */ {},
    /* 17 */ {t_prefix, a_prefix_start, n_closed, a_prefix_end},
    /* 18 */ {n_closed},
    /* 19 */ {n_atom, n_closure},
    /* 20 */ {t_lbrace, a_minimum, n_count, a_counted},
    /* 21 */ {t_star, a_star},
    /* 22 */ {t_plus, a_plus},
    /* 23 */ {t_quest, a_optional},
    /* 24 */ {},
    /* 25 */ {t_rbrace, a_close_count},
    /* 26 */ {t_comma, a_maximum, t_rbrace, a_close_count},
    /* 27 */ {n_class, a_set},
    /* 28 */ {t_dot, a_any},
    /* 29 */ {t_literal, a_literal},
    /* 30 */ {t_macro, a_macro},
    /* 31 */ {t_backref, a_backref},
    /* 32 */ {t_lparen, a_open, n_group},
    /* 33 */ {n_expression, t_rparen, a_close_group},
    /* 34 */ {a_empty_group, t_rparen, a_close_group},
    /* 35 */ {t_lbracket, a_class_start, n_negation, n_body, t_rbracket, a_class_end},
    /* 36 */ {t_caret, a_negate},
    /* 37 */ {},
    /* 38 */ {t_colon, a_named, t_colon},
    /* 39 */ {n_member, n_members},
    /* 40 */ {n_member, n_members},
    /* 41 */ {},
    /* 42 */ {t_literal, a_range_start, n_range},
    /* 43 */ {t_class_macro, a_class_macro},
    /* 44 */ {t_dash, t_literal, a_range_end},
    /* 45 */ {a_single},
};

constexpr unsigned nonterminal_count = nonterminal_end - n_pattern;

// The parse table: (nonterminal, token class) -> production + 1; 0 is a
// syntax error. Built from the FIRST and FOLLOW sets of the grammar.
struct parse_table {
    std::uint8_t entry[nonterminal_count][terminal_count] = {};

    constexpr void set(std::uint8_t nt, std::initializer_list<terminal> tokens, unsigned p) {
        for (terminal t : tokens)
            entry[nt - n_pattern][t] = std::uint8_t(p + 1);
    }
    constexpr parse_table() {
        auto const atom = {t_lbracket, t_dot, t_literal, t_macro, t_backref, t_lparen};
        auto const item = {t_prefix, t_lbracket, t_dot, t_literal, t_macro, t_backref, t_lparen};
        auto const branch = {t_caret, t_dollar, t_prefix, t_lbracket, t_dot,
                             t_literal, t_macro, t_backref, t_lparen};
        auto const after_branch = {t_bar, t_slash, t_end, t_rparen};
        auto const after_sequence = {t_dollar, t_bar, t_slash, t_end, t_rparen};
        set(n_pattern, branch, 0);
        set(n_expression, branch, 1);
        set(n_tail, {t_slash}, 2);
        set(n_tail, {t_end, t_rparen}, 3);
        set(n_alternatives, branch, 4);
        set(n_more, {t_bar}, 5);
        set(n_more, {t_slash, t_end, t_rparen}, 6);
        set(n_branch, item, 9);
        set(n_branch, {t_caret}, 7);
        set(n_branch, {t_dollar}, 8);
        set(n_rest, item, 10);
        set(n_rest, after_sequence, 11);
        set(n_close, {t_dollar}, 12);
        set(n_close, after_branch, 13);
        set(n_sequence, item, 14);
        set(n_items, item, 15);
        set(n_items, after_sequence, 16);
        set(n_item, {t_prefix}, 17);
        set(n_item, atom, 18);
        set(n_closed, atom, 19);
        set(n_closure, item, 24);
        set(n_closure, after_sequence, 24);
        set(n_closure, {t_lbrace}, 20);
        set(n_closure, {t_star}, 21);
        set(n_closure, {t_plus}, 22);
        set(n_closure, {t_quest}, 23);
        set(n_count, {t_rbrace}, 25);
        set(n_count, {t_comma}, 26);
        set(n_atom, {t_lbracket}, 27);
        set(n_atom, {t_dot}, 28);
        set(n_atom, {t_literal}, 29);
        set(n_atom, {t_macro}, 30);
        set(n_atom, {t_backref}, 31);
        set(n_atom, {t_lparen}, 32);
        set(n_group, branch, 33);
        set(n_group, {t_rparen}, 34);
        set(n_class, {t_lbracket}, 35);
        set(n_negation, {t_caret}, 36);
        set(n_negation, {t_colon, t_literal, t_class_macro}, 37);
        set(n_body, {t_colon}, 38);
        set(n_body, {t_literal, t_class_macro}, 39);
        set(n_members, {t_literal, t_class_macro}, 40);
        set(n_members, {t_rbracket}, 41);
        set(n_member, {t_literal}, 42);
        set(n_member, {t_class_macro}, 43);
        set(n_range, {t_dash}, 44);
        set(n_range, {t_literal, t_class_macro, t_rbracket}, 45);
    }
};
constexpr parse_table grammar;

bool is_white(unsigned u) noexcept { return u == ' ' || (u >= 9 && u <= 13); }

void set_bit(std::uint32_t* set, unsigned c) noexcept { set[c >> 5] |= 1u << (c & 31); }
void clear_line_ends(std::uint32_t* set) noexcept {
    set[0] &= ~((1u << 0) | (1u << 10) | (1u << 13));
}

// The eight predefined sets (\a \d \h \l \o \s \u \w), built once.
struct predefined_sets {
    re_set set[8] = {};

    predefined_sets() {
        auto range = [](std::uint32_t* s, unsigned a, unsigned b) {
            for (unsigned c = a; c <= b; ++c)
                set_bit(s, c);
        };
        range(set[0], 'a', 'z'); range(set[0], 'A', 'Z');
        range(set[1], '0', '9');
        range(set[2], '0', '9'); range(set[2], 'a', 'f'); range(set[2], 'A', 'F');
        range(set[3], 'a', 'z');
        range(set[4], '0', '7');
        for (unsigned c : {32u, 10u, 9u, 13u, 11u, 12u})
            set_bit(set[5], c);
        range(set[6], 'A', 'Z');
        set_bit(set[7], '_'); range(set[7], 'a', 'z'); range(set[7], 'A', 'Z'); range(set[7], '0', '9');
    }
};

predefined_sets const& macros() {
    static predefined_sets const sets;  // a one-time initialisation, safe across threads
    return sets;
}

} // namespace

void parse_op_buffer::run(unsigned short const* text, unsigned n) {
    if (!text)
        fail(regex_base::null_pattern, 0);
    if (n == 0)
        fail(regex_base::empty_pattern, 0);
    if (n > max_units)
        fail(regex_base::too_big, 0);
    std::memcpy(pattern, text, n * sizeof(std::uint16_t));
    length = n;
    parse();
    fold();
    build();
    compute_start_set();
}

// --- tokenizer -------------------------------------------------------------------

token parse_op_buffer::read_token() {
    while (pattern[scan] == '"') {  // quotation marks toggle and stand for nothing
        quoted = !quoted;
        ++scan;
    }
    unsigned const at = scan;
    bool const escape = !quoted && pattern[scan] == '\\';
    if (escape)
        ++scan;
    if (pattern[scan] == 0 && !(quoted && scan < length)) {
        if (quoted)
            fail(regex_base::unclosed_quotes, length - 1);
        if (escape)
            fail(regex_base::bad_escape, at);
        return {0, t_end, std::uint8_t(scan)};
    }
    if (escape)
        return read_escape(at);
    unsigned const u = pattern[scan++];
    token t{std::uint16_t(u), t_literal, std::uint8_t(at)};
    if (quoted)
        return t;
    if (in_closure) {
        if (is_white(u))
            fail(regex_base::white_space, at);
        t.cls = table_class(u);
    } else if (in_class) {
        std::uint8_t const c = table_class(u);
        if (c == t_dash || c == t_colon || c == t_lbracket || c == t_rbracket || c == t_caret)
            t.cls = c;
    } else {
        if (is_white(u))
            fail(regex_base::white_space, at);
        if (u != ',' && u != '-' && u != ':')
            t.cls = table_class(u);
    }
    return t;
}

static unsigned hex_value(unsigned u) noexcept {
    if (u >= '0' && u <= '9') return u - '0';
    if (u >= 'a' && u <= 'f') return u - 'a' + 10;
    if (u >= 'A' && u <= 'F') return u - 'A' + 10;
    return 16;
}

// Decodes the escape whose backslash is at `at`; scan is on the unit after.
token parse_op_buffer::read_escape(unsigned at) {
    static char const macro_letters[] = "adhlosuw";
    unsigned const u = pattern[scan];
    token t{std::uint16_t(u), t_literal, std::uint8_t(at)};
    char const* const m = u < 128 && u != 0 ? std::strchr(macro_letters, int(u | 0x20)) : nullptr;
    if (m && (u == unsigned(*m) || u == unsigned(*m - 32))) {
        t.value = std::uint16_t((m - macro_letters) + (u == unsigned(*m) ? 0 : 32));
        t.cls = in_class ? t_class_macro : t_macro;
        ++scan;
        return t;
    }
    switch (u) {
    case ' ': case '"': case '\\': break;
    case 'e': t.value = 27; break;
    case 'f': t.value = 12; break;
    case 'n': t.value = 10; break;
    case 'r': t.value = 13; break;
    case 't': t.value = 9; break;
    case 'v': t.value = 11; break;
    case 'z': t.value = 0; break;
    case 'c':
        if (pattern[scan + 1] < 64 || pattern[scan + 1] > 95)
            fail(regex_base::bad_escape, at);
        t.value = std::uint16_t(pattern[++scan] - 64);
        break;
    case 'x': {
        unsigned const h = hex_value(pattern[scan + 1]), l = hex_value(pattern[scan + 2]);
        if (h > 15 || l > 15)
            fail(regex_base::bad_escape, at);
        t.value = std::uint16_t(h * 16 + l);
        scan += 2;
        break;
    }
    default:
        if (u >= '0' && u <= '9') {
            if (in_class)
                fail(regex_base::bad_escape, at);
            if (u - '0' >= group_count)  // a group still open counts
                fail(regex_base::bad_back_reference, at);
            t.value = std::uint16_t(u - '0');
            t.cls = t_backref;
        } else if (u >= 192 || table_class(u) == t_literal || u == 0) {
            fail(regex_base::bad_escape, at);
        }
    }
    ++scan;
    return t;
}

// Up to ten decimal digits at the scan position; a value past 32 bits
// saturates. False when there is no digit.
bool parse_op_buffer::read_number(unsigned& value) {
    unsigned long long v = 0;
    unsigned digits = 0;
    while (digits < 10 && pattern[scan] >= '0' && pattern[scan] <= '9') {
        v = v * 10 + (pattern[scan++] - '0');
        ++digits;
    }
    value = v > npos ? npos : unsigned(v);
    return digits != 0;
}

// --- parser ----------------------------------------------------------------------

void parse_op_buffer::parse() {
    // Deepest stack: each nesting level of groups holds about ten symbols.
    std::uint8_t stack[1024];
    unsigned sp = 0;
    stack[sp++] = n_pattern;
    token look{};
    bool have = false;  // the look-ahead is read only when needed, after the actions before it
    while (sp) {
        std::uint8_t const top = stack[--sp];
        if (top >= a_trailing) {
            act(top);
            continue;
        }
        if (!have) {
            look = read_token();
            have = true;
        }
        if (top < n_pattern) {
            if (look.cls != top)
                fail(regex_base::syntax_error, look.pos);
            last = look;
            have = false;
            continue;
        }
        unsigned const p = grammar.entry[top - n_pattern][look.cls];
        if (!p)
            fail(regex_base::syntax_error, look.pos);
        std::uint8_t const* rhs = productions[p - 1];
        unsigned n = 0;
        while (n < 8 && rhs[n])
            ++n;
        if (sp + n > sizeof stack)
            fail(regex_base::too_big);
        while (n)
            stack[sp++] = rhs[--n];
    }
}

void parse_op_buffer::emit(std::uint8_t code, unsigned value, unsigned pos) {
    if (op_count == max_ops)
        fail(regex_base::too_big);
    ops[op_count++] = {std::uint16_t(value), code, std::uint8_t(pos)};
}

void parse_op_buffer::act(std::uint8_t a) {
    switch (a) {
    case a_trailing: emit(op_trail, '/', 255); break;
    case a_alternate: emit(op_alternate, '|', 255); break;
    case a_begin:
        anchored = true;
        emit(op_begin, '^', last.pos);
        break;
    case a_end: emit(op_end, '$', last.pos); break;
    case a_concatenate: emit(op_concat, '&', 255); break;
    case a_prefix_start: break;
    case a_prefix_end: emit(op_prefix, '!', 255); break;
    case a_minimum:
        if (!read_number(minimum))
            fail(regex_base::bad_closure);
        in_closure = true;
        maximum = minimum;
        break;
    case a_maximum:
        if (!read_number(maximum))
            maximum = npos;
        break;
    case a_close_count: in_closure = false; break;
    case a_counted: counted(); break;
    case a_star: emit(op_star, '*', 255); break;
    case a_plus: emit(op_plus, '+', 255); break;
    case a_optional: emit(op_optional, '?', 255); break;
    case a_set: emit_class(); break;
    case a_any: emit(op_any, '.', last.pos); break;
    case a_literal: emit(last.value == 10 ? op_newline : op_literal, last.value, last.pos); break;
    case a_macro:
        std::memset(&scratch, 0, sizeof scratch);
        std::memcpy(scratch.low, macros().set[last.value & 7], sizeof(re_set));
        negated = last.value >= 32;
        emit_class();
        break;
    case a_backref: emit(op_backref, last.value, last.pos); break;
    case a_open:
        if (group_count == max_groups)
            fail(regex_base::too_many_subexpressions, last.pos);
        groups[group_count] = {last.pos, 0};
        open_groups[open_count++] = std::uint8_t(group_count++);
        break;
    case a_close_group: {
        unsigned const g = open_groups[--open_count];
        groups[g].second = last.pos - groups[g].first + 1;
        emit(op_group_end, g, last.pos);
        break;
    }
    case a_empty_group: emit(op_empty_group, 0, 255); break;
    case a_class_start:
        in_class = true;
        negated = false;
        std::memset(&scratch, 0, sizeof scratch);
        break;
    case a_class_end: in_class = false; break;
    case a_negate: negated = true; break;
    case a_named: named_class(); break;
    case a_class_macro: {
        std::uint32_t const* set = macros().set[last.value & 7];
        for (unsigned i = 0; i < 8; ++i)
            scratch.low[i] |= last.value >= 32 ? std::uint32_t(~set[i]) &
                                                     (i ? ~0u : ~((1u << 0) | (1u << 10) | (1u << 13)))
                                               : set[i];
        break;
    }
    case a_range_start: range_from = last.value; break;
    case a_range_end: add_range(range_from, last.value); break;
    case a_single: add_code(range_from); break;
    }
}

void parse_op_buffer::counted() {
    if (maximum < minimum || maximum == 0)
        fail(regex_base::bad_closure, last.pos);
    if (minimum == 0 && maximum == npos)
        return emit(op_star, '*', 255);
    if (minimum == 1 && maximum == npos)
        return emit(op_plus, '+', 255);
    if (minimum == 0 && maximum == 1)
        return emit(op_optional, '?', 255);
    if (closure_count == max_closures)  // also when the pair is already there
        fail(regex_base::too_many_closures);
    unsigned i = 0;
    while (i < closure_count && !(closures[i].first == minimum && closures[i].second == maximum))
        ++i;
    if (i == closure_count)
        closures[closure_count++] = {minimum, maximum};
    emit(op_counted, i, 255);
}

void parse_op_buffer::add_code(unsigned c) {
    if (c < 256)
        set_bit(scratch.low, c);
    else if (c >= alpha_lower && c < alpha_upper)
        set_bit(scratch.alpha, c - alpha_lower);
}

// A range whose ends are not both in 0..255 or both in the alphabet block
// is dropped.
void parse_op_buffer::add_range(unsigned a, unsigned b) {
    bool const low = a < 256 && b < 256;
    bool const alpha = a >= alpha_lower && a < alpha_upper && b >= alpha_lower && b < alpha_upper;
    if (low || alpha)
        for (unsigned c = a; c <= b; ++c)
            add_code(c);
}

void parse_op_buffer::emit_class() {
    if (class_count == max_classes)  // also when the class equals one before
        fail(regex_base::too_many_classes);
    if (negated) {
        for (unsigned i = 0; i < 8; ++i) {
            scratch.low[i] = ~scratch.low[i];
            scratch.alpha[i] = ~scratch.alpha[i];
        }
        clear_line_ends(scratch.low);  // a negated class never matches 10, 13 or 0
        negated = false;
    }
    scratch.lower = alpha_lower;
    scratch.upper = alpha_upper;
    unsigned i = 0;
    while (i < class_count && std::memcmp(&classes[i], &scratch, sizeof scratch) != 0)
        ++i;
    if (i == class_count)
        classes[class_count++] = scratch;
    emit(op_class, i, last.pos);
}

void parse_op_buffer::named_class() {
    static struct {
        char const* name;
        char const* ranges;  // pairs of first and last code
    } const names[] = {
        {"alnum", "azAZ09"}, {"alpha", "azAZ"}, {"cntrl", "\x01\x1F\x7F\x7F"},
        {"digit", "09"}, {"graph", "!~"}, {"lower", "az"}, {"print", " ~"},
        {"punct", "!/:@[`{~"}, {"space", "\t\r  "}, {"upper", "AZ"}, {"xdigit", "09afAF"},
    };
    unsigned const at = scan;
    char name[257];
    unsigned n = 0;
    while (n < 256 && pattern[scan] < 128 && std::isalpha(pattern[scan]))
        name[n++] = char(std::tolower(pattern[scan++]));
    name[n] = 0;
    for (auto const& entry : names) {
        if (std::strcmp(entry.name, name) != 0)
            continue;
        if (entry.name[0] == 'c')
            set_bit(scratch.low, 0);  // cntrl starts at code 0, which a text cannot hold
        for (char const* r = entry.ranges; *r; r += 2)
            for (unsigned c = static_cast<unsigned char>(r[0]); c <= static_cast<unsigned char>(r[1]); ++c)
                set_bit(scratch.low, c);
        return;
    }
    fail(regex_base::bad_class, at);
}

// --- literal folding -------------------------------------------------------------
// "a b &" and "a b & c & ..." become one string; "x a & b & ..." (a run of
// at least two literal-and-concatenation pairs after something else)
// becomes one string and one concatenation. A run of one literal stays.

void parse_op_buffer::fold() {
    auto literal_at = [&](unsigned i) { return i < op_count && ops[i].code == op_literal; };
    auto concat_at = [&](unsigned i) { return i < op_count && ops[i].code == op_concat; };
    unsigned out = 0;
    for (unsigned i = 0; i < op_count;) {
        bool const leading = literal_at(i) && literal_at(i + 1) && concat_at(i + 2);
        bool const trailing = literal_at(i) && concat_at(i + 1) && literal_at(i + 2) && concat_at(i + 3);
        if (!leading && !trailing) {
            ops[out++] = ops[i++];
            continue;
        }
        unsigned const offset = literal_count;
        parse_op const first = ops[i];
        literals[literal_count++] = first.value;
        if (leading) {
            literals[literal_count++] = ops[i + 1].value;
            i += 3;
        } else {
            i += 2;
        }
        while (literal_at(i) && concat_at(i + 1)) {
            literals[literal_count++] = ops[i].value;
            i += 2;
        }
        ops[out++] = {std::uint16_t(offset | (literal_count - offset) << 8), op_string, first.pos};
        if (trailing)
            ops[out++] = {'&', op_concat, 255};
    }
    op_count = out;
}

// --- state machine -----------------------------------------------------------------
// Each operation pushes a fragment {start, end}; the end state's next1 is
// the fragment's one open exit, linked by the operation that consumes it.

unsigned parse_op_buffer::new_state(std::uint8_t kind, unsigned arg) {
    if (top_state == max_states)
        fail(regex_base::too_big);
    states[++top_state] = {kind, 0, std::uint16_t(arg), 0, 0};
    return top_state;
}

// A state that two edges lead to (the machine's entry counting as one) can
// be reached twice at one position along different paths; the matcher
// remembers its visits at these states only.
static void mark_joins(re_state* states, unsigned top, unsigned start) noexcept {
    unsigned short edges[256] = {};
    edges[start] = 1;
    for (unsigned i = 1; i <= top; ++i) {
        ++edges[states[i].next1];
        ++edges[states[i].next2];
    }
    for (unsigned i = 1; i <= top; ++i)
        if (edges[i] >= 2)
            states[i].flags |= re_join;
}

void parse_op_buffer::build() {
    fragment stack[max_ops];
    unsigned sp = 0;
    auto link = [&](unsigned from, unsigned to) { states[from].next1 = std::uint16_t(to); };
    // A join for two exits: an end that is already a bare link serves.
    auto join = [&](unsigned a, unsigned b) {
        if (states[b].kind == re_link) {
            link(a, b);
            return b;
        }
        unsigned const j = new_state(re_link);
        link(a, j);
        link(b, j);
        return j;
    };
    for (unsigned i = 0; i < op_count; ++i) {
        parse_op const op = ops[i];
        unsigned s;
        switch (op.code) {
        case op_literal: s = new_state(re_char, op.value); break;
        case op_string: s = new_state(re_string, op.value); break;
        case op_class: s = new_state(re_class, op.value); break;
        case op_any: s = new_state(re_any); break;
        case op_backref:
            features |= re_has_backref;
            s = new_state(re_backref, op.value);
            break;
        case op_begin: s = new_state(re_begin); break;
        case op_end: s = new_state(re_end); break;
        case op_newline: s = new_state(re_newline); break;
        case op_empty_group: s = new_state(re_empty); break;
        case op_prefix: continue;  // reserved: no pattern produces it
        case op_concat: {
            fragment const b = stack[--sp], a = stack[--sp];
            link(a.end, b.start);
            stack[sp++] = {a.start, b.end};
            continue;
        }
        case op_trail: {
            features |= re_has_trail;
            fragment const b = stack[--sp], a = stack[--sp];
            unsigned const t = new_state(re_trail);
            link(a.end, t);
            link(t, b.start);
            stack[sp++] = {a.start, b.end};
            continue;
        }
        case op_alternate: {
            fragment const b = stack[--sp], a = stack[--sp];
            unsigned const split = new_state(re_split);
            states[split].next1 = std::uint16_t(a.start);
            states[split].next2 = std::uint16_t(b.start);
            stack[sp++] = {split, join(a.end, b.end)};
            continue;
        }
        case op_optional: {
            fragment const a = stack[--sp];
            unsigned const split = new_state(re_split);
            unsigned const exit = states[a.end].kind == re_link ? a.end : new_state(re_link);
            if (exit != a.end)
                link(a.end, exit);
            states[split].next1 = std::uint16_t(a.start);
            states[split].next2 = std::uint16_t(exit);
            stack[sp++] = {split, exit};
            continue;
        }
        case op_star:
        case op_plus: {
            // The loop state tries the body first (greedy), the exit second.
            // The entry forgets where an earlier instance of the loop last
            // entered its body (an enclosing loop may come back to it).
            fragment const a = stack[--sp];
            unsigned const slot = slots++;
            unsigned const enter = new_state(re_count_enter, slot);
            unsigned const loop = new_state(re_loop, slot);
            unsigned const exit = new_state(re_link);
            link(enter, op.code == op_star ? loop : a.start);
            link(a.end, loop);
            states[loop].next1 = std::uint16_t(a.start);
            states[loop].next2 = std::uint16_t(exit);
            stack[sp++] = {enter, exit};
            continue;
        }
        case op_counted: {
            features |= re_has_count;
            fragment const a = stack[--sp];
            unsigned const slot = slots++;
            unsigned const enter = new_state(re_count_enter, slot);
            unsigned const loop = new_state(re_count_loop, slot | op.value << 8);
            unsigned const next = new_state(re_count_next, slot);
            unsigned const exit = new_state(re_link);
            link(enter, loop);
            link(a.end, next);
            link(next, loop);
            states[loop].next1 = std::uint16_t(a.start);
            states[loop].next2 = std::uint16_t(exit);
            stack[sp++] = {enter, exit};
            continue;
        }
        case op_group_end: {
            fragment const a = stack[--sp];
            unsigned const open = new_state(re_open, op.value);
            unsigned const close = new_state(re_close, op.value);
            link(open, a.start);
            link(a.end, close);
            stack[sp++] = {open, close};
            continue;
        }
        default: continue;
        }
        stack[sp++] = {s, s};
    }
    fragment const whole = stack[--sp];
    if (states[whole.end].kind == re_link)
        states[whole.end].kind = re_final;
    else
        link(whole.end, new_state(re_final));
    start_state = whole.start;
    mark_joins(states, top_state, start_state);
}

// --- start set -------------------------------------------------------------------------
// The units a match can begin with: what the consuming states reachable
// through linking and zero-width states accept. Reaching the final state,
// or a back-reference (which may capture nothing), makes it every unit.

void parse_op_buffer::compute_start_set() {
    std::uint8_t seen[max_states + 1] = {};
    std::uint16_t todo[max_states + 1];
    unsigned n = 0;
    todo[n++] = std::uint16_t(start_state);
    seen[start_state] = 1;
    auto all = [&] { std::memset(start_set, 0xFF, sizeof start_set); };
    while (n) {
        re_state const& s = states[todo[--n]];
        unsigned follow[2] = {0, 0};
        switch (s.kind) {
        case re_char:
            if (s.arg < 256)
                set_bit(start_set, s.arg);
            break;
        case re_string:
            if (literals[s.arg & 0xFF] < 256)
                set_bit(start_set, literals[s.arg & 0xFF]);
            break;
        case re_class:
            for (unsigned i = 0; i < 8; ++i)
                start_set[i] |= classes[s.arg].low[i];
            break;
        case re_any:
            for (unsigned i = 0; i < 8; ++i)
                start_set[i] |= i ? ~0u : ~((1u << 10) | (1u << 13));
            break;
        case re_newline:
            set_bit(start_set, 10);
            set_bit(start_set, 13);
            break;
        case re_backref:
        case re_final: all(); return;
        case re_split:
        case re_loop:
        case re_count_loop:
            follow[0] = s.next1;
            follow[1] = s.next2;
            break;
        default:  // linking and zero-width states
            follow[0] = s.next1;
        }
        for (unsigned f : follow)
            if (f && !seen[f]) {
                seen[f] = 1;
                todo[n++] = std::uint16_t(f);
            }
    }
}

xbuf const* detail::regex_probe::program(regex_base const& re) { return re.program_; }

void detail::regex_probe::raise(unsigned code) {
    parse_op_buffer buffer(256, 512);
    buffer.fail(code, 7);
}

// --- the expression object ----------------------------------------------------------

regex_base::~regex_base() { delete_xbuf(); }

char const* regex_base::message(unsigned code) noexcept {
    return code < sizeof messages / sizeof *messages ? messages[code] : "";
}

void regex_base::print_status(std::FILE* stream) const {
    if (location_ == npos)
        (void)std::fputs(message(status_), stream);
    else
        (void)std::fprintf(stream, "%s at index %d", message(status_), int(location_));
    (void)std::fflush(stream);
}

unsigned regex_base::subexpressions() const noexcept { return program_ ? program_->group_count : 0; }

bool regex_base::compile(char const* pattern, unsigned length, bool) {
    unsigned short units[max_units];
    if (pattern && length == npos)
        length = unsigned(std::strlen(pattern));
    if (pattern && length <= max_units)
        for (unsigned i = 0; i < length; ++i)
            units[i] = static_cast<unsigned char>(pattern[i]);
    return compile_units(pattern ? units : nullptr, length);
}

bool regex_base::compile(signed char const* pattern, unsigned length, bool flag) {
    return compile(reinterpret_cast<char const*>(pattern), length, flag);
}

bool regex_base::compile(unsigned char const* pattern, unsigned length, bool flag) {
    return compile(reinterpret_cast<char const*>(pattern), length, flag);
}

bool regex_base::compile(string_base<char> const& pattern, bool flag) {
    return compile(pattern.data(), pattern.size(), flag);
}

bool regex_base::compile_units(unsigned short const* pattern, unsigned length) {
    delete_xbuf();  // the old program goes whatever the outcome
    parse_op_buffer buffer(alpha_lower_, alpha_upper_);
    bool compiled = false;
    try {
        buffer.run(pattern, length);
        compiled = true;
    } catch (exception const&) {
    }
    status_ = buffer.status;
    location_ = buffer.location;
    if (compiled)
        create_xbuf(&buffer);
    return compiled;
}

// Sizes rounded up to the next multiple of 16; a multiple still gains 16.
static constexpr unsigned round16(unsigned n) noexcept { return (n / 16 + 1) * 16; }

// The header's offsets are 16-bit: the largest program the tables allow
// (every state, every literal unit, class, closure and group at once, and
// a wide alphabet) ends far below 64 KB.
static_assert(round16((max_states + 1) * 8) + round16(max_units) * 2 + (max_classes + 1) * 32 +
                      max_closures * 8 + max_groups * 8 + 8 + max_classes * 32 <= 0xFFFF,
              "the program header's 16-bit offsets reach every area");

void regex_base::create_xbuf(parse_op_buffer const* b) {
    // Narrow expressions use the block 256..512, which no wide block has:
    // their programs keep only the sets of codes 0..255.
    bool const wide = !(alpha_lower_ == 256 && alpha_upper_ == 512);
    xbuf h{};
    h.state_bytes = std::uint16_t(round16((b->top_state + 1) * 8));
    h.literal_units = std::uint16_t(round16(b->literal_count));
    h.class_offset = std::uint16_t(h.state_bytes + h.literal_units * 2);
    h.class_sets = std::uint16_t(b->class_count + 1);
    h.class_bytes = std::uint16_t(h.class_sets * 32);
    h.closure_offset = std::uint16_t(h.class_offset + h.class_bytes);
    h.group_count = std::uint16_t(b->group_count);
    h.group_offset = std::uint16_t(h.closure_offset + b->closure_count * 8);
    h.anchored = b->anchored;
    h.start = std::uint8_t(b->start_state);
    h.top_state = std::uint8_t(b->top_state);
    h.slots = std::uint8_t(b->slots);
    h.features = std::uint8_t(b->features | (wide ? re_has_alphabet : 0));
    unsigned const size = h.size();
    detail::re_cache* const cache = detail::re_cache_create();
    xbuf* p;
    try {
        p = static_cast<xbuf*>(heap_.allocate(size));
    } catch (...) {
        detail::re_cache_destroy(cache);
        throw;
    }
    std::memset(p, 0, size);
    *p = h;
    unsigned char* area = p->area();
    std::memcpy(area, b->states, (b->top_state + 1) * sizeof(re_state));
    std::memcpy(area + h.state_bytes, b->literals, b->literal_count * 2);
    for (unsigned i = 0; i < b->class_count; ++i)
        std::memcpy(area + h.class_offset + i * 32, b->classes[i].low, 32);
    std::memcpy(area + h.class_offset + b->class_count * 32, b->start_set, 32);
    std::memcpy(area + h.closure_offset, b->closures, b->closure_count * 8);
    std::memcpy(area + h.group_offset, b->groups, b->group_count * 8);
    if (wide) {
        std::uint32_t* alpha = reinterpret_cast<std::uint32_t*>(area + h.alphabet_offset());
        alpha[0] = alpha_lower_;
        alpha[1] = alpha_upper_;
        for (unsigned i = 0; i < b->class_count; ++i)
            std::memcpy(alpha + 2 + i * 8, b->classes[i].alpha, 32);
    }
    program_ = p;
    cache_ = cache;
}

void regex_base::copy_xbuf(xbuf const* program) {
    unsigned const size = program->size();
    xbuf* p = static_cast<xbuf*>(heap_.allocate(size));
    std::memcpy(p, program, size);
    detail::re_cache* cache;
    try {
        cache = detail::re_cache_create();
    } catch (...) {
        heap_.deallocate(p);
        throw;
    }
    delete_xbuf();
    program_ = p;
    cache_ = cache;
}

void regex_base::delete_xbuf() noexcept {
    if (program_)
        heap_.deallocate(program_);
    program_ = nullptr;
    detail::re_cache_destroy(cache_);
    cache_ = nullptr;
}

void regex_base::assign(regex_base const& other) {
    if (this == &other)
        return;
    if (other.program_)
        copy_xbuf(other.program_);
    else
        delete_xbuf();
    status_ = other.status_;
    location_ = other.location_;
    alpha_lower_ = other.alpha_lower_;
    alpha_upper_ = other.alpha_upper_;
}

// --- the wide expression -------------------------------------------------------------

namespace {
// The alphabet blocks: lower bound included, upper bound excluded (so each
// block's last code, listed here, cannot be put into a class).
constexpr std::uint16_t alphabet_blocks[][2] = {
    {0x0100, 0x017F}, {0x0180, 0x024F}, {0x0370, 0x03FF}, {0x0400, 0x04FF}, {0x0530, 0x058F},
    {0x0590, 0x05FF}, {0x0600, 0x06FF}, {0x0900, 0x097F}, {0x0980, 0x09FF}, {0x0A00, 0x0A7F},
    {0x0A80, 0x0AFF}, {0x0B00, 0x0B7F}, {0x0B80, 0x0BFF}, {0x0C00, 0x0C7F}, {0x0C80, 0x0CFF},
    {0x0D00, 0x0D7F}, {0x0E00, 0x0E7F}, {0x0E80, 0x0EFF}, {0x10A0, 0x10FF}, {0x1100, 0x11FF},
    {0x3040, 0x309F}, {0x30A0, 0x30FF}, {0x3040, 0x30FF}, {0x3100, 0x312F},
};
} // namespace

wregex_base::wregex_base(allocator_engine& heap, wregex_alphabets alphabet) noexcept
    : regex_base(heap, alphabet_blocks[alphabet % 24][0], alphabet_blocks[alphabet % 24][1]),
      alphabet_(alphabet) {}

wregex_base::~wregex_base() = default;

bool wregex_base::compile(unsigned short const* pattern, unsigned length, bool) {
    if (pattern && length == npos)
        length = char_traits<unsigned short>::length(pattern);
    return compile_units(pattern, length);
}

bool wregex_base::compile(string_base<unsigned short> const& pattern, bool flag) {
    return compile(pattern.data(), pattern.size(), flag);
}

void wregex_base::assign(wregex_base const& other) {
    regex_base::assign(other);
    alphabet_ = other.alphabet_;
}

} // namespace zel
