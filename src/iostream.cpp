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

in_place<filebuf> narrow_in;
in_place<filebuf> narrow_out;
in_place<filebuf> narrow_err;
in_place<wfilebuf> wide_in;
in_place<wfilebuf> wide_out;
in_place<wfilebuf> wide_err;

in_place<istream> cin_storage;
in_place<ostream> cout_storage;
in_place<ostream> cerr_storage;
in_place<ostream> clog_storage;
in_place<wistream> wcin_storage;
in_place<wostream> wcout_storage;
in_place<wostream> wcerr_storage;
in_place<wostream> wclog_storage;

// How many Init objects are alive. Start-up and exit run on one thread, so
// a plain count does; it is constant-initialised like the storage.
int init_count = 0;

template <class T>
void destroy(in_place<T>& s) noexcept {
    s.object.~T();
}

} // namespace

istream& cin = cin_storage.object;
ostream& cout = cout_storage.object;
ostream& cerr = cerr_storage.object;
ostream& clog = clog_storage.object;
wistream& wcin = wcin_storage.object;
wostream& wcout = wcout_storage.object;
wostream& wcerr = wcerr_storage.object;
wostream& wclog = wclog_storage.object;

ios_base::Init::Init() {
    if (init_count++ != 0)
        return;
    ldx_manager registry;
    static_cast<void>(registry);
    locale::startup();

    new (&narrow_in.object) filebuf(stdin, false);
    new (&narrow_out.object) filebuf(stdout, false);
    new (&narrow_err.object) filebuf(stderr, false);
    new (&wide_in.object) wfilebuf(stdin, false);
    new (&wide_out.object) wfilebuf(stdout, false);
    new (&wide_err.object) wfilebuf(stderr, false);

    new (&cin_storage.object) istream(&narrow_in.object);
    new (&cout_storage.object) ostream(&narrow_out.object);
    new (&cerr_storage.object) ostream(&narrow_err.object);
    new (&clog_storage.object) ostream(&narrow_err.object);
    cin.tie(&cout);
    cerr.tie(&cout);
    clog.tie(&cout);
    cerr.setf(ios_base::unitbuf);

    new (&wcin_storage.object) wistream(&wide_in.object);
    new (&wcout_storage.object) wostream(&wide_out.object);
    new (&wcerr_storage.object) wostream(&wide_err.object);
    new (&wclog_storage.object) wostream(&wide_err.object);
    wcin.tie(&wcout);
    wcerr.tie(&wcout);
    wclog.tie(&wcout);
    wcerr.setf(ios_base::unitbuf);
}

ios_base::Init::~Init() {
    if (--init_count != 0)
        return;
    cout.flush();
    cerr.flush();
    clog.flush();
    wcout.flush();
    wcerr.flush();
    wclog.flush();

    destroy(wclog_storage);
    destroy(wcerr_storage);
    destroy(wcout_storage);
    destroy(wcin_storage);
    destroy(clog_storage);
    destroy(cerr_storage);
    destroy(cout_storage);
    destroy(cin_storage);

    destroy(wide_err);
    destroy(wide_out);
    destroy(wide_in);
    destroy(narrow_err);
    destroy(narrow_out);
    destroy(narrow_in);

    locale::shutdown();
    ldx_manager::destroy_map();
}

namespace {
// The library's own Init: the objects exist for as long as the library is
// loaded, whether or not a program's file includes iostream.h.
ios_base::Init const library_init;  // NOLINT(cert-err58-cpp): as std::ios_base::Init
} // namespace

} // namespace zel
