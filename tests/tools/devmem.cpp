// Test-only tool for the board sandbox: one register access through the
// board's /dev/mem accessor. Never shipped.
//   devmem ADDRESS          prints the word as 0x%08x
//   devmem ADDRESS VALUE    writes it
// Numbers take C prefixes. Prints what the accessor prints; exit status 0
// when the access gave 0, 1 otherwise.
#include <cstdio>
#include <cstdlib>

#include "ax630c_qm/gpio.h"

int main(int argc, char *argv[])
{
    if (argc < 2 || argc > 3)
        return 2;
    const auto address = static_cast<std::uint32_t>(std::strtoul(argv[1], nullptr, 0));
    auto value = static_cast<std::uint32_t>(argc == 3 ? std::strtoul(argv[2], nullptr, 0) : 0);
    const int rc = devmem_access(address, argc == 3, &value);
    if (rc == 0 && argc == 2)
        std::printf("0x%08x\n", value);
    return rc == 0 ? 0 : 1;
}
