// A program whose static constructor and destructor write to cout: the
// standard objects must be built before this file's statics and flushed
// after them, with no read of unbuilt storage (the sanitizer builds run it
// too). The test compares the program's whole output.
#include <zel/iostream.h>

namespace {

struct early_writer {
    early_writer() { zel::cout << "constructed before main: " << 42 << zel::endl; }
    ~early_writer() { zel::cout << "written by a static destructor, " << zel::hex << 255 << '\n'; }
} const early;

} // namespace

int main() {
    zel::cout << "main: " << 1.5 << ' ' << zel::wstring(u"x").size() << zel::endl;
    zel::wcout << zel::wstring(u"wide") << zel::endl;
    return zel::cout.good() ? 0 : 1;
}
