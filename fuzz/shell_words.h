// A small POSIX shell tokeniser for the fuzz targets: turns a command text
// into the words and operators a shell would see, so a target can check
// that text from the record reaches a program as exactly one argument.
#pragma once

#include <string>
#include <vector>

struct ShellSplit {
    // False when the text holds something whose value is not known before
    // the shell runs it (parameter or command substitution, a pathname
    // pattern, a tilde, a comment, a brace) or a quote left open: its words
    // cannot be compared literally, so a check must fail on it.
    bool literal = true;
    std::string why; // what made it non-literal
    // Words after quote removal, and operators ("&", ";", "&&", ">", "\n",
    // ...) as tokens of their own, in order.
    std::vector<std::string> tokens;
};

// Splits `text` by the POSIX rules: blanks separate words; a backslash
// outside quotes takes the next character literally (and a backslash-
// newline joins lines); single quotes keep everything up to the next
// single quote; inside double quotes a backslash escapes only $ ` " \ and
// newline. Characters that are special only to some shells ({ } ! and
// the pattern characters) count as non-literal when unquoted, so a
// quoting that passes here is safe for dash, busybox ash and bash alike.
ShellSplit split_shell_words(const std::string &text);
