// Fuzz target: the quoting helper. The input's bytes up to the first NUL
// are the text. Read back as a POSIX shell reads a word, the quoted form
// must give the text: outside single quotes only the plain characters and
// the escaped quote \' may stand, inside them anything but a quote. The
// same text quoted into a smaller buffer gives a terminated prefix and the
// same reported length. Buffers are heap blocks of exactly their size.
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "base/shell.h"

namespace {

// The word a shell makes of `quoted`, or "\x01" when it is no single
// literal word (an unquoted special character, an open quote).
std::string Unquote(const std::string &quoted)
{
    std::string word;
    for (std::size_t i = 0; i < quoted.size(); ++i) {
        const char c = quoted[i];
        if (c == '\'') {
            const std::size_t end = quoted.find('\'', i + 1);
            if (end == std::string::npos)
                return "\x01";
            word += quoted.substr(i + 1, end - i - 1);
            i = end;
        } else if (c == '\\' && i + 1 < quoted.size() && quoted[i + 1] == '\'') {
            word += quoted[++i];
        } else if (std::isalnum(static_cast<unsigned char>(c)) || std::strchr("._-:/+=,@", c)) {
            word += c;
        } else {
            return "\x01";
        }
    }
    return word;
}

std::string QuoteInto(const std::string &text, std::size_t size, std::size_t &need)
{
    std::unique_ptr<char[]> out(new char[size]);
    need = shell_quote(text.c_str(), out.get(), size);
    if (std::memchr(out.get(), '\0', size) == nullptr)
        std::abort(); // not terminated
    return out.get();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const std::string text(reinterpret_cast<const char *>(data),
                           strnlen(reinterpret_cast<const char *>(data), size));
    std::size_t need = shell_quote(text.c_str(), nullptr, 0);
    std::size_t full = 0;
    const std::string quoted = QuoteInto(text, need + 1, full);
    if (full != need || quoted.size() != need || Unquote(quoted) != text ||
        (text.empty() && !quoted.empty()))
        std::abort();
    if (need > 0) {
        std::size_t cut_need = 0;
        const std::string cut = QuoteInto(text, 1 + data[0] % need, cut_need);
        if (cut_need != need || quoted.compare(0, cut.size(), cut) != 0)
            std::abort();
    }
    return 0;
}
