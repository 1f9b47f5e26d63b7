// hw_start: the board's boot-time device initialiser. Reads the identity
// record, makes eth0 carry its MAC, publishes the identity, leaves the
// work-mode marker, starts the application programs and stays resident.
#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "app/args.h"
#include "app/startup.h"
#include "base/std_fds.h"
#include "log/log.h"

namespace {

constexpr const char kVersion[] = "3.0.0";

int ignore_sigpipe()
{
    struct sigaction sa {};
    sa.sa_handler = SIG_IGN;
    sigemptyset(&sa.sa_mask);
    sa.sa_flags = 0;
    if (sigaction(SIGPIPE, &sa, nullptr) != 0) {
        std::puts(" @@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@ bdsetup mask signal failed "
                  "@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@");
        return -1;
    }
    return 0;
}

void print_help()
{
    std::puts("support cmd list:");
    std::puts("help: show this menu");
    std::puts("version: show version");
    std::puts("debug: work with debug info output");
    std::puts("dev3_file=xxxxxx: save device info to file xxxx, xxxx must include absolute path, "
              "if use mtdblock, set xxxxx like this: /dev/mtdblock3");
}

void handle_words(int argc, char *argv[])
{
    if (asks_help(argc, argv)) {
        print_help();
        std::exit(0);
    }
    if (find_word(argc, argv, "version") != 0) {
        // The build date and time follow SOURCE_DATE_EPOCH when it is set.
        std::printf("hw_start version : %s, build time %s %s\n", kVersion, __DATE__, __TIME__);
        std::exit(0);
    }
    if (find_word(argc, argv, "debug") != 0)
        set_debug_flag(1);
    scan_store_path(argc, argv, "dev3_file", dev_file_path);
    scan_store_path(argc, argv, "dev_file=", dev_file_path);
}

} // namespace

int main(int argc, char *argv[])
{
    // Before anything is opened: no store or socket may become fd 0, 1 or 2.
    ensure_std_fds();
    // Standard output usually goes to a log file or pipe on the board and
    // the program never exits: nothing may wait in a buffer, and lines
    // must keep their order with what the started commands print.
    std::setvbuf(stdout, nullptr, _IONBF, 0);

    ignore_sigpipe();

    std::printf("argc = %d\n", argc);
    for (int i = 1; i < argc; ++i)
        std::printf("argv%d = %s\n", i, argv[i]);
    if (argc > 1)
        handle_words(argc, argv);

    CDevice *dev = CreateDevice("");
    if (dev == nullptr) {
        std::puts("new device failed, please check device define");
        std::exit(0);
    }

    if (static_cast<std::uint32_t>(dev->CheckDevice()) != 0) {
        for (;;) {
            show_result(4, dev);
            msleep(400);
        }
    }

    start_device(dev);
    for (;;)
        msleep(1000);
}
