// The eight standard stream objects and ios_base::Init.
//
// Each object lives in a union whose constexpr constructor activates only a
// placeholder byte, so the storage is constant-initialised (zero before any
// code runs) and no constructor of its own ever touches it; the public
// names are references bound to the storage at compile time. Init builds the
// objects in place with placement new under a counter and destroys them
// again when the counter returns to 0, so nothing is read before it is
// constructed or after it is destroyed.
#include <zel/iostream.h>

#include <cstdio>
#include <new>

#include <zel/ldx.h>
#include <zel/locale.h>
#include <zel/streambuf.h>

namespace zel {

namespace {

template <class T>
union in_place {
    constexpr in_place() noexcept : none() {}
    ~in_place() {}
    char none;
    T object;
};

template <class T>
void destroy(in_place<T>& s) noexcept {
    s.object.~T();
}

// One character type's objects: the buffers over stdin, stdout and stderr
// and the four streams over them (clog shares cerr's buffer).
template <class C>
struct standard_set {
    in_place<basic_filebuf<C>> in_buf;
    in_place<basic_filebuf<C>> out_buf;
    in_place<basic_filebuf<C>> err_buf;
    in_place<basic_istream<C>> in;
    in_place<basic_ostream<C>> out;
    in_place<basic_ostream<C>> err;
    in_place<basic_ostream<C>> log;

    // The input and the error streams are tied to the output; the error
    // stream writes through at once.
    void build() {
        new (&in_buf.object) basic_filebuf<C>(stdin, false);
        new (&out_buf.object) basic_filebuf<C>(stdout, false);
        new (&err_buf.object) basic_filebuf<C>(stderr, false);
        new (&in.object) basic_istream<C>(&in_buf.object);
        new (&out.object) basic_ostream<C>(&out_buf.object);
        new (&err.object) basic_ostream<C>(&err_buf.object);
        new (&log.object) basic_ostream<C>(&err_buf.object);
        in.object.tie(&out.object);
        err.object.tie(&out.object);
        log.object.tie(&out.object);
        err.object.setf(ios_base::unitbuf);
    }
    void flush() {
        out.object.flush();
        err.object.flush();
        log.object.flush();
    }
    // In the reverse order of build.
    void tear_down() noexcept {
        destroy(log);
        destroy(err);
        destroy(out);
        destroy(in);
        destroy(err_buf);
        destroy(out_buf);
        destroy(in_buf);
    }
};

standard_set<char> narrow;
standard_set<unsigned short> wide;

// How many Init objects are alive. Start-up and exit run on one thread, so
// a plain count does; it is constant-initialised like the storage.
int init_count = 0;

} // namespace

istream& cin = narrow.in.object;
ostream& cout = narrow.out.object;
ostream& cerr = narrow.err.object;
ostream& clog = narrow.log.object;
wistream& wcin = wide.in.object;
wostream& wcout = wide.out.object;
wostream& wcerr = wide.err.object;
wostream& wclog = wide.log.object;

ios_base::Init::Init() {
    if (init_count++ != 0)
        return;
    ldx_manager registry;
    static_cast<void>(registry);
    locale::startup();

    narrow.build();
    wide.build();
}

ios_base::Init::~Init() {
    if (--init_count != 0)
        return;
    narrow.flush();
    wide.flush();
    wide.tear_down();
    narrow.tear_down();

    locale::shutdown();
    ldx_manager::destroy_map();
}

namespace {
// The library's own Init: the objects exist for as long as the library is
// loaded, whether or not a program's file includes iostream.h.
ios_base::Init const library_init;  // NOLINT(cert-err58-cpp): as std::ios_base::Init
} // namespace

} // namespace zel
