// Record text reaches the shell as exactly one word.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "log/shell.h"

namespace {

std::string quote(const char *text)
{
    char out[kMaxQuotedField + 1];
    const std::size_t need = shell_quote(text, out, sizeof out);
    EXPECT_LT(need, sizeof out);
    return out;
}

// What a real shell makes of `word`: the arguments it hands a program.
std::vector<std::string> shell_words(const std::string &word)
{
    FILE *p = popen(("printf '%s\\0' " + word).c_str(), "r");
    std::vector<std::string> words;
    std::string cur;
    for (int c; (c = std::fgetc(p)) != EOF;) {
        if (c == '\0') {
            words.push_back(cur);
            cur.clear();
        } else {
            cur.push_back(static_cast<char>(c));
        }
    }
    pclose(p);
    return words;
}

} // namespace

TEST(ShellQuote, PlainTextGoesInUnchanged)
{
    EXPECT_EQ(quote("AX620Q_cam-1.0"), "AX620Q_cam-1.0");
    EXPECT_EQ(quote("02:AA:bb:cc:dd:ee"), "02:AA:bb:cc:dd:ee");
    EXPECT_EQ(quote("a/b+c=d,e@f"), "a/b+c=d,e@f");
    EXPECT_EQ(quote(""), "");
}

TEST(ShellQuote, HostileTextIsOneWordForARealShell)
{
    const char *const hostile[] = {
        "x;touch /tmp/pwned",
        "$(reboot)",
        "`id`",
        "it's",
        "'''''''''''''''''''''''''''''''", // 31 quotes, the worst case
        "a b\tc",
        "line1\nline2",
        "-n",
        "\\c*?[]{}<>|&!#~%^",
        "\"double\"",
    };
    for (const char *text : hostile) {
        const std::string word = quote(text);
        EXPECT_EQ(shell_words(word), std::vector<std::string>{text}) << word;
    }
}

TEST(ShellQuote, BoundedOutputIsTerminatedAndReportsNeed)
{
    char small[6];
    EXPECT_EQ(shell_quote("a'b", small, sizeof small), 8u); // 'a'\''b'
    EXPECT_EQ(std::string(small), "'a'\\'");
}

TEST(FormatCommand, RefusesToCut)
{
    char cmd[kCommandSize];
    EXPECT_TRUE(format_command(cmd, "touch /firmware/%x", 0xabcdefu));
    EXPECT_STREQ(cmd, "touch /firmware/abcdef");
    const std::string huge(300, 'x');
    EXPECT_FALSE(format_command(cmd, "echo %s", huge.c_str()));
    EXPECT_STREQ(cmd, "");
}
