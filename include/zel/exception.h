// The library's exceptions and the one throw path every checked operation
// uses.
//
// Two families derive from zel::exception (itself a std::exception, so
// `catch (std::exception const&)` sees everything zel throws):
//   - xexception and its leaves, which carry a class name, a message and the
//     file and line of the throw site, and can print a report;
//   - the classes mirroring the runtime's own (bad_alloc, bad_cast, ...),
//     which carry only a message.
// Every text is borrowed, never copied: pass literals.
#ifndef ZEL_EXCEPTION_H
#define ZEL_EXCEPTION_H

#include <exception>

#include <zel/config.h>

namespace zel {

// The runtime exception class of the library: a borrowed text, and what()
// returns it (an empty text when none was given).
class ZEL_API exception : public std::exception {
public:
    exception() noexcept : text_(nullptr) {}
    explicit exception(char const* what) noexcept : text_(what) {}
    exception(exception const&) noexcept = default;
    exception& operator=(exception const&) noexcept = default;
    ~exception() override;

    char const* what() const noexcept override { return text_ ? text_ : ""; }

private:
    char const* text_;
};

// Base of the library's own family. The name is the most derived class's
// name; message and file may be null; a line of -1 means no line.
//
// Kept behaviour: what() returns the message pointer itself, so it is null
// for an object made without a message, also when called through a
// std::exception reference. Test it before use.
class ZEL_API xexception : public exception {
public:
    xexception() noexcept : xexception("xexception", nullptr, nullptr, -1) {}
    explicit xexception(char const* what) noexcept
        : xexception("xexception", what, nullptr, -1) {}
    // Copies the four fields; the base part is default-constructed.
    xexception(xexception const& other) noexcept  // NOLINT(bugprone-copy-constructor-init): kept, see above
        : exception(), name_(other.name_), message_(other.message_),
          file_(other.file_), line_(other.line_) {}
    // Copies the four fields (nothing on self-assignment) and leaves the
    // base part untouched.
    xexception const& operator=(xexception const& other) noexcept;
    ~xexception() override;

    char const* what() const noexcept override { return message_; }
    virtual char const* name() const noexcept { return name_; }
    virtual char const* file() const noexcept { return file_; }
    virtual int line() const noexcept { return line_; }
    // Writes the report to stderr after flushing every output stream:
    //   !!! EXCEPTION THROWN !!!\n\n
    //   --> Type: <name>\n                    (when name is set)
    //   --> What: <message>\n                 (when message is set)
    //   --> From: '<file>', line <line>\n     (when file is set; the line
    //                                           part only when line != -1)
    virtual void print() const;
    virtual void set_location(char const* file, int line) noexcept;

protected:
    xexception(char const* name, char const* what, char const* file, int line) noexcept
        : exception(), name_(name), message_(what), file_(file), line_(line) {}

private:
    char const* name_;
    char const* message_;
    char const* file_;
    int line_;
};

// The two intermediate classes of the family; the leaves below call their
// protected constructor with their own name.
class ZEL_API logic_error : public xexception {
public:
    logic_error(char const* what = nullptr, char const* file = nullptr, int line = -1) noexcept
        : xexception("logic_error", what, file, line) {}
    logic_error(logic_error const&) noexcept = default;
    logic_error const& operator=(logic_error const& other) noexcept {
        xexception::operator=(other);
        return *this;
    }
    ~logic_error() override;

protected:
    logic_error(char const* name, char const* what, char const* file, int line) noexcept
        : xexception(name, what, file, line) {}
};

class ZEL_API runtime_error : public xexception {
public:
    runtime_error(char const* what = nullptr, char const* file = nullptr, int line = -1) noexcept
        : xexception("runtime_error", what, file, line) {}
    runtime_error(runtime_error const&) noexcept = default;
    runtime_error const& operator=(runtime_error const& other) noexcept {
        xexception::operator=(other);
        return *this;
    }
    ~runtime_error() override;

protected:
    runtime_error(char const* name, char const* what, char const* file, int line) noexcept
        : xexception(name, what, file, line) {}
};

#define ZEL_XEXCEPTION_LEAF(cls, base)                                                   \
    class ZEL_API cls : public base {                                                    \
    public:                                                                              \
        cls(char const* what = nullptr, char const* file = nullptr, int line = -1) noexcept \
            : base(#cls, what, file, line) {}                                            \
        cls(cls const&) noexcept = default;                                              \
        cls const& operator=(cls const& other) noexcept {                                \
            base::operator=(other);                                                      \
            return *this;                                                                \
        }                                                                                \
        ~cls() override;                                                                 \
    }

ZEL_XEXCEPTION_LEAF(container_error, logic_error);
ZEL_XEXCEPTION_LEAF(domain_error, logic_error);
ZEL_XEXCEPTION_LEAF(invalid_argument, logic_error);
ZEL_XEXCEPTION_LEAF(length_error, logic_error);
ZEL_XEXCEPTION_LEAF(out_of_range, logic_error);
// Deliberately a logic_error: a synchronisation failure is a misuse.
ZEL_XEXCEPTION_LEAF(sync_error, logic_error);
ZEL_XEXCEPTION_LEAF(overflow_error, runtime_error);
ZEL_XEXCEPTION_LEAF(range_error, runtime_error);

#undef ZEL_XEXCEPTION_LEAF

// The classes mirroring the runtime's own. The message lives in the
// zel::exception base; _Doraise throws a copy of the object under the class
// that defines it.
#define ZEL_RUNTIME_MIRROR(cls, text)                                                    \
    class ZEL_API cls : public exception {                                               \
    public:                                                                              \
        cls(char const* what = text) noexcept : exception(what) {}                       \
        cls(cls const&) noexcept = default;                                              \
        ~cls() override;                                                                 \
                                                                                         \
    protected:                                                                           \
        virtual void _Doraise() const;                                                   \
    }

ZEL_RUNTIME_MIRROR(bad_exception, "bad exception");
ZEL_RUNTIME_MIRROR(bad_alloc, "bad allocation");
ZEL_RUNTIME_MIRROR(bad_cast, "bad cast");
ZEL_RUNTIME_MIRROR(bad_typeid, "bad typeid");

#undef ZEL_RUNTIME_MIRROR

// Kept behaviour: inherits bad_typeid's _Doraise, so raising it that way
// throws a bad_typeid copy.
class ZEL_API __non_rtti_object : public bad_typeid {  // NOLINT(bugprone-reserved-identifier): the runtime's own name
public:
    explicit __non_rtti_object(char const* what) noexcept : bad_typeid(what) {}
    __non_rtti_object(__non_rtti_object const&) noexcept = default;
    ~__non_rtti_object() override;
};

// Raises a copy of `e` as an object of exact class xexception, with the
// location set to (file, line). The leaf class is sliced away on purpose:
// handlers catch xexception (or exception) and tell the kind by name().
[[noreturn]] ZEL_API void zel_throw(xexception const& e, char const* file, int line);

// Raises a copy of `e` as a plain zel::exception carrying its what() text;
// file and line are ignored. The heaps raise bad_alloc this way.
[[noreturn]] ZEL_API void zel_throw(exception const& e, char const* file, int line);

using terminate_handler = void (*)();
using unexpected_handler = void (*)();

// Forward to the runtime's handler.
ZEL_API terminate_handler set_terminate(terminate_handler handler) noexcept;
[[noreturn]] ZEL_API void terminate() noexcept;

// The library keeps its own unexpected handler (the runtime has none any
// more). The default handler, also installed by passing null, is terminate.
ZEL_API unexpected_handler set_unexpected(unexpected_handler handler) noexcept;
ZEL_API void unexpected();

} // namespace zel

// Every checked throw site of the library goes through this macro, so the
// report names the source file relative to the source tree and the real line.
#define ZEL_THROW(leaf_object) ::zel::zel_throw((leaf_object), __FILE__, __LINE__)

// The same for a throw site whose reported line is part of the library's
// contract: reports have always named that line, wherever the code now sits.
#define ZEL_THROW_AT(leaf_object, line) ::zel::zel_throw((leaf_object), __FILE__, (line))

#endif
