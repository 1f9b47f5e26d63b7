// The one C++ runtime entry point the program needs, so that it links no
// libstdc++ and runs on a board that carries only the C library: the
// pure virtual slots of CDevice's vtable point here. (Board objects are
// released through CDevice's own operator delete, which calls free.)
#include <cstdlib>

extern "C" void __cxa_pure_virtual()
{
    std::abort();
}
