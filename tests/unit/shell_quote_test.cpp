// A quoted word or a command that does not fit is cut and says so, and a
// cut command is never run. What the quoted words mean to a shell: the
// boot table and the shell_quote fuzz target.
#include <gtest/gtest.h>

#include <string>

#include "base/shell.h"

TEST(ShellQuote, CutWordsAndCommandsSaySo)
{
    char small[6];
    EXPECT_EQ(shell_quote("a'b", small, sizeof small), 8u); // 'a'\''b' needs 8
    EXPECT_STREQ(small, "'a'\\'");
    char cmd[kCommandSize];
    EXPECT_FALSE(format_command(cmd, "echo %s", std::string(300, 'x').c_str()));
    EXPECT_STREQ(cmd, "") << "a cut command is never run";
}
