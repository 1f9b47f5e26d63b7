#include "app/args.h"

#include <cstdio>
#include <cstring>

#include "log/log.h"

int find_word(int argc, char *const argv[], const char *word)
{
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], word) == 0)
            return i;
    }
    return 0;
}

bool asks_help(int argc, char *const argv[])
{
    return find_word(argc, argv, "help") != 0 || find_word(argc, argv, "--help") != 0 ||
           find_word(argc, argv, "-h") != 0;
}

bool scan_store_path(int argc, char *const argv[], const char *word, char (&path)[kPathSize])
{
    for (int i = 1; i < argc; ++i) {
        const char *match = std::strstr(argv[i], word);
        log_notice("main", "arg%d = %s, file = %p\n", i, argv[i], static_cast<const void *>(match));
        if (match == nullptr)
            continue;
        log_notice("main", "dev file = %s\n", match);
        const char *eq = std::strchr(match, '=');
        if (eq == nullptr)
            return false;
        log_notice("main", "dev file1 = %s\n", eq + 1);
        std::snprintf(path, sizeof path, "%s", eq + 1);
        return true;
    }
    return false;
}
