#include "shell_words.h"

#include <cstring>

namespace
{

bool is_blank(char c)
{
    return c == ' ' || c == '\t';
}

// Characters that end a word and start an operator.
bool is_operator_start(char c)
{
    return std::strchr("|&;<>()\n", c) != nullptr && c != '\0';
}

// Unquoted characters whose meaning depends on the shell or on the files
// present: a quoting helper must never leave them bare.
bool is_unsafe_bare(char c)
{
    return std::strchr("*?[]{}!#~", c) != nullptr && c != '\0';
}

// The longest operator at `text[i]`.
std::string operator_at(const std::string &text, std::size_t i)
{
    static const char *const kTwo[] = {"&&", "||", ";;", "<<", ">>", "<&", ">&", "<>", ">|"};
    if (i + 1 < text.size()) {
        for (const char *op : kTwo) {
            if (text[i] == op[0] && text[i + 1] == op[1])
                return op;
        }
    }
    return std::string(1, text[i]);
}

} // namespace

ShellSplit split_shell_words(const std::string &text)
{
    ShellSplit out;
    std::string word;
    bool in_word = false; // a word has started (it may be empty: '')
    auto fail = [&out](const char *why) {
        if (out.literal) {
            out.literal = false;
            out.why = why;
        }
    };
    auto end_word = [&] {
        if (in_word)
            out.tokens.push_back(word);
        word.clear();
        in_word = false;
    };

    std::size_t i = 0;
    while (i < text.size()) {
        const char c = text[i];
        if (is_blank(c)) {
            end_word();
            ++i;
        } else if (is_operator_start(c)) {
            end_word();
            const std::string op = operator_at(text, i);
            out.tokens.push_back(op);
            i += op.size();
        } else if (c == '\\') {
            if (i + 1 >= text.size()) {
                // What a backslash at the very end means depends on what
                // the shell reads after the text.
                fail("backslash at the end");
                word += c;
                in_word = true;
                ++i;
            } else if (text[i + 1] == '\n') {
                i += 2; // line continuation: both characters vanish
            } else {
                word += text[i + 1];
                in_word = true;
                i += 2;
            }
        } else if (c == '\'') {
            const std::size_t close = text.find('\'', i + 1);
            if (close == std::string::npos) {
                fail("unterminated single quote");
                return out;
            }
            word.append(text, i + 1, close - i - 1);
            in_word = true;
            i = close + 1;
        } else if (c == '"') {
            in_word = true;
            ++i;
            bool closed = false;
            while (i < text.size()) {
                const char d = text[i];
                if (d == '"') {
                    closed = true;
                    ++i;
                    break;
                }
                if (d == '$' || d == '`')
                    fail("expansion inside double quotes");
                if (d == '\\' && i + 1 < text.size() &&
                    std::strchr("$`\"\\\n", text[i + 1]) != nullptr) {
                    if (text[i + 1] != '\n')
                        word += text[i + 1];
                    i += 2;
                    continue;
                }
                word += d;
                ++i;
            }
            if (!closed) {
                fail("unterminated double quote");
                return out;
            }
        } else if (c == '$' || c == '`') {
            fail("unquoted expansion");
            word += c;
            in_word = true;
            ++i;
        } else {
            if (is_unsafe_bare(c))
                fail("unquoted pattern, tilde, comment, brace or bang character");
            word += c;
            in_word = true;
            ++i;
        }
    }
    end_word();
    return out;
}
