// The exception families, the throw path and the report. The destructors are
// defined here so every class's vtable and type information live in the
// library once, and a handler in a client matches the thrown class.
#include <zel/exception.h>

#include <atomic>
#include <cstdio>

namespace zel {

exception::~exception() = default;

xexception::~xexception() = default;
logic_error::~logic_error() = default;
runtime_error::~runtime_error() = default;
container_error::~container_error() = default;
domain_error::~domain_error() = default;
invalid_argument::~invalid_argument() = default;
length_error::~length_error() = default;
out_of_range::~out_of_range() = default;
sync_error::~sync_error() = default;
overflow_error::~overflow_error() = default;
range_error::~range_error() = default;

bad_exception::~bad_exception() = default;
bad_alloc::~bad_alloc() = default;
bad_cast::~bad_cast() = default;
bad_typeid::~bad_typeid() = default;
__non_rtti_object::~__non_rtti_object() = default;

void bad_exception::_Doraise() const { throw *this; }
void bad_alloc::_Doraise() const { throw *this; }
void bad_cast::_Doraise() const { throw *this; }
void bad_typeid::_Doraise() const { throw *this; }

xexception const& xexception::operator=(xexception const& other) noexcept {
    if (this != &other) {
        name_ = other.name_;
        message_ = other.message_;
        file_ = other.file_;
        line_ = other.line_;
    }
    return *this;
}

void xexception::set_location(char const* file, int line) noexcept {
    file_ = file;
    line_ = line;
}

void xexception::print() const {
    (void)std::fflush(nullptr);
    (void)std::fputs("!!! EXCEPTION THROWN !!!\n\n", stderr);
    if (name_)
        (void)std::fprintf(stderr, "--> Type: %s\n", name_);
    if (message_)
        (void)std::fprintf(stderr, "--> What: %s\n", message_);
    if (file_) {
        (void)std::fprintf(stderr, "--> From: '%s'", file_);
        if (line_ != -1)
            (void)std::fprintf(stderr, ", line %d", line_);
        (void)std::fputs("\n", stderr);
    }
    (void)std::fflush(stderr);
}

void zel_throw(xexception const& e, char const* file, int line) {
    xexception copy(e);
    // Bound statically: the copy is an xexception whatever e was.
    copy.xexception::set_location(file, line);
    throw copy;  // NOLINT(cert-err09-cpp): the raised object is this copy
}

void zel_throw(exception const& e, char const*, int) {
    throw exception(e);
}

terminate_handler set_terminate(terminate_handler handler) noexcept {
    return std::set_terminate(handler);
}

void terminate() noexcept {
    std::terminate();
}

namespace {
std::atomic<unexpected_handler> unexpected_hook{&terminate};
} // namespace

unexpected_handler set_unexpected(unexpected_handler handler) noexcept {
    return unexpected_hook.exchange(handler ? handler : &terminate);
}

void unexpected() {
    unexpected_hook.load()();
}

} // namespace zel
