// Fuzz target: the command-line scans over an argv made from the input.
// The input's bytes up to each NUL make one argument (a trailing NUL ends
// the last one); argv[0] is the program's name. Each argument lives in a
// heap block of exactly its length plus the NUL, and the store path in a
// heap block of exactly kPathSize bytes, so ASan sees any read or write
// outside them. The results are compared with the rules worked out here
// over std::string.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "app/args.h"
#include "log/log.h"

namespace
{

constexpr std::size_t kMaxArgs = 4096;

std::vector<std::string> split_args(const std::uint8_t *data, std::size_t size)
{
    std::vector<std::string> args{"hw_start"};
    std::string cur;
    for (std::size_t i = 0; i < size && args.size() < kMaxArgs; ++i) {
        if (data[i] == 0) {
            args.push_back(cur);
            cur.clear();
        } else {
            cur.push_back(static_cast<char>(data[i]));
        }
    }
    if (!cur.empty() && args.size() < kMaxArgs)
        args.push_back(cur);
    return args;
}

[[noreturn]] void fail(const char *what, const std::string &detail)
{
    std::fprintf(stderr, "%s: %s\n", what, detail.c_str());
    std::abort();
}

int expected_word(const std::vector<std::string> &args, const char *word)
{
    for (std::size_t i = 1; i < args.size(); ++i) {
        if (args[i] == word)
            return static_cast<int>(i);
    }
    return 0;
}

// The path rule: the first argument holding the word decides; the text
// after the first "=" at or after the match, cut to kPathSize - 1.
bool expected_path(const std::vector<std::string> &args, const char *word, std::string &path)
{
    for (std::size_t i = 1; i < args.size(); ++i) {
        const std::size_t at = args[i].find(word);
        if (at == std::string::npos)
            continue;
        const std::size_t eq = args[i].find('=', at);
        if (eq == std::string::npos)
            return false;
        path = args[i].substr(eq + 1, kPathSize - 1);
        return true;
    }
    return false;
}

void check_scan(int argc, char *const argv[], const std::vector<std::string> &args,
                const char *word)
{
    // A scan that takes no path leaves the buffer as it was: start from a
    // marker so that shows.
    auto *block = static_cast<char *>(std::malloc(kPathSize));
    auto &path = *reinterpret_cast<char(*)[kPathSize]>(block);
    std::memset(path, 'M', kPathSize);
    path[kPathSize - 1] = '\0';
    const std::string before(path);

    std::string want;
    const bool want_set = expected_path(args, word, want);
    const bool set = scan_store_path(argc, argv, word, path);
    if (set != want_set)
        fail("scan_store_path result differs", word);
    if (std::memchr(path, '\0', kPathSize) == nullptr)
        fail("store path not terminated", word);
    if (set && want != path)
        fail("store path differs", want + " / " + path);
    if (!set && before != path)
        fail("store path changed without a match", word);
    std::free(block);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    // The debug lines of the scans go to standard output.
    if (std::freopen("/dev/null", "w", stdout) == nullptr)
        return 0;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const std::vector<std::string> args = split_args(data, size);
    std::vector<std::unique_ptr<char[]>> blocks;
    std::vector<char *> argv;
    for (const std::string &a : args) {
        blocks.emplace_back(new char[a.size() + 1]);
        std::memcpy(blocks.back().get(), a.c_str(), a.size() + 1);
        argv.push_back(blocks.back().get());
    }
    argv.push_back(nullptr); // argv[argc] is null, as the kernel gives it
    const int argc = static_cast<int>(args.size());

    for (const char *word : {"help", "version", "debug"}) {
        if (find_word(argc, argv.data(), word) != expected_word(args, word))
            fail("find_word differs", word);
    }
    // With and without the debug lines, as main runs the scans either way.
    set_debug_flag(size % 2 == 0 ? 1 : 0);
    check_scan(argc, argv.data(), args, "dev3_file");
    check_scan(argc, argv.data(), args, "dev_file=");
    set_debug_flag(0);
    return 0;
}
