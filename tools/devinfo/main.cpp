// devinfo: creates, shows, checks and saves the board's identity record,
// and prints the shared identity block of the running board (cli.cpp).
#include "base/std_fds.h"
#include "tools/devinfo/cli.h"

int main(int argc, char *argv[])
{
    // Before anything is opened: a store opened as fd 2 would receive the
    // diagnostics. Without /dev/null nothing can be opened safely.
    if (!ensure_std_fds())
        return kExitProblem;
    return devinfo_main(argc, argv);
}
