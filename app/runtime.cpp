// The few C++ runtime entry points the program needs, so that it links
// no libstdc++ and runs on a board that carries only the C library. The
// board object is placed with placement new on malloc'ed memory; these
// cover the deleting destructor and pure virtual slots of its vtable.
#include <cstddef>
#include <cstdlib>

void operator delete(void *p) noexcept
{
    std::free(p);
}

void operator delete(void *p, std::size_t) noexcept
{
    std::free(p);
}

extern "C" void __cxa_pure_virtual()
{
    std::abort();
}
