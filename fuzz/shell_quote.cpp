// Fuzz target: the quoting helper. The input's bytes up to the first NUL
// are the text. Its quoted form, split back into words as a shell would,
// must be the text as exactly one word (the empty text stays empty, as
// the helper promises, and so gives no word). The same text quoted into
// a smaller buffer must give a terminated prefix of the full form and the
// same reported length. Output buffers are heap blocks of exactly the
// size handed over, so ASan sees any write past them.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "base/shell.h"
#include "shell_words.h"

namespace
{

[[noreturn]] void fail(const char *what, const std::string &text, const std::string &quoted)
{
    std::fprintf(stderr, "shell_quote: %s\n  text:   [%s]\n  quoted: [%s]\n", what, text.c_str(),
                 quoted.c_str());
    std::abort();
}

// Quotes `text` into a heap block of `size` bytes (none when 0).
std::string quote_into(const std::string &text, std::size_t size, std::size_t &need)
{
    std::unique_ptr<char[]> out(size > 0 ? new char[size] : nullptr);
    need = shell_quote(text.c_str(), out.get(), size);
    if (size == 0)
        return std::string();
    if (std::memchr(out.get(), '\0', size) == nullptr)
        fail("output not terminated", text, std::string(out.get(), size));
    return std::string(out.get());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const std::string text(reinterpret_cast<const char *>(data),
                           strnlen(reinterpret_cast<const char *>(data), size));

    std::size_t need = 0;
    quote_into(text, 0, need);
    std::size_t full_need = 0;
    const std::string quoted = quote_into(text, need + 1, full_need);
    if (full_need != need || quoted.size() != need)
        fail("reported length differs from the quoted form", text, quoted);
    // Each character costs at most 4 (a quote as '\''), plus the outer pair.
    if (need > 2 + 4 * text.size())
        fail("quoted form longer than the bound", text, quoted);

    const ShellSplit split = split_shell_words(quoted);
    if (!split.literal)
        fail(("quoted form is not literal: " + split.why).c_str(), text, quoted);
    const std::vector<std::string> want =
        text.empty() ? std::vector<std::string>{} : std::vector<std::string>{text};
    if (split.tokens != want)
        fail("quoted form is not the text as one word", text, quoted);

    // Cut short: a terminated prefix, the same length reported.
    if (need > 0) {
        const std::size_t small = 1 + static_cast<std::size_t>(data[0]) % need;
        std::size_t cut_need = 0;
        const std::string cut = quote_into(text, small, cut_need);
        if (cut_need != need || cut.size() != small - 1 || quoted.compare(0, cut.size(), cut) != 0)
            fail("cut form is not a prefix of the full one", text, cut);
    }
    return 0;
}
