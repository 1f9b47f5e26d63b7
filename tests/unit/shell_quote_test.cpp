// Record text reaches the shell as exactly one word, checked against a real
// shell; a cut word or command says so. Bare plain words: the system tests.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "base/shell.h"

namespace {

std::string Quote(const std::string &text)
{
    char out[kMaxQuotedField + 1];
    EXPECT_LT(shell_quote(text.c_str(), out, sizeof out), sizeof out);
    return out;
}

// The arguments /bin/sh makes of `word`, each followed by "|".
std::string ShellWords(const std::string &word)
{
    std::string got;
    FILE *p = popen(("printf '%s|' " + word).c_str(), "r");
    for (int c; (c = std::fgetc(p)) != EOF;)
        got += static_cast<char>(c);
    pclose(p);
    return got;
}

} // namespace

TEST(ShellQuote, OneWordForARealShell)
{
    const std::vector<std::string> hostile = {"x;touch /tmp/pwned", "$(echo x)", "`id`", "it's",
                                              std::string(31, '\''), "a b\tc", "line1\nline2",
                                              "-n", "\\c*?[]{}<>|&!#~%^", "\"double\""};
    for (const std::string &text : hostile)
        EXPECT_EQ(ShellWords(Quote(text)), text + "|") << Quote(text);
    char small[6];
    EXPECT_EQ(shell_quote("a'b", small, sizeof small), 8u); // 'a'\''b' needs 8
    EXPECT_STREQ(small, "'a'\\'");
    char cmd[kCommandSize];
    EXPECT_FALSE(format_command(cmd, "echo %s", std::string(300, 'x').c_str()));
    EXPECT_STREQ(cmd, "") << "a cut command is never run";
}
