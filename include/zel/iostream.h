// The eight standard stream objects: cin, cout, cerr and clog over the C
// library's standard input, output and error, and their wide twins wcin,
// wcout, wcerr and wclog (which convert through the locale's multibyte
// forms). Including this header makes them usable from any static
// constructor of the including file.
//
// Start-up and tear-down (ios_base::Init). The objects live in static
// storage that no constructor of their own ever touches; the first Init of
// the program (one per file that includes this header, one in the library)
// builds, in order: the descriptor registry and the classic and global
// locales; six file buffers over standard input, output and error, narrow
// then wide, none owning its C stream; cin over input, cout over output,
// cerr and clog over error, with cin, cerr and clog tied to cout; then the
// same for the wide objects, tied to wcout. cerr and wcerr also get unitbuf,
// so each insertion reaches standard error at once. The last Init to go
// flushes cout, cerr, clog, wcout, wcerr and wclog, destroys the objects
// (wide first, each group in reverse order) and the buffers, then the
// locales and the descriptor registry. Since the library's own Init goes
// last, output written by the static destructors of a program's files is
// flushed too.
//
// The file buffers hold up to 32 characters before they hand them to the C
// stream: mixing these objects with printf on one C stream needs a flush
// between the two.
#ifndef ZEL_IOSTREAM_H
#define ZEL_IOSTREAM_H

#include <zel/config.h>
#include <zel/ios.h>
#include <zel/istream.h>
#include <zel/ostream.h>

namespace zel {

// Each name refers to storage built by ios_base::Init; the references are
// constant-initialised, so they are valid before any constructor runs.
extern ZEL_API istream& cin;
extern ZEL_API ostream& cout;
extern ZEL_API ostream& cerr;
extern ZEL_API ostream& clog;
extern ZEL_API wistream& wcin;
extern ZEL_API wostream& wcout;
extern ZEL_API wostream& wcerr;
extern ZEL_API wostream& wclog;

namespace {  // NOLINT(cert-dcl59-cpp): one Init per file, as <iostream>
// Built before anything else this file defines, so the objects are ready
// for this file's static constructors and still there for its destructors.
ios_base::Init const zel_ios_init_object;  // NOLINT(cert-err58-cpp): as std::ios_base::Init
} // namespace

} // namespace zel

#endif
