// The command-line words: pure scans over argv, kept apart from main so
// that unit tests and fuzz targets reach them.
#pragma once

#include <cstddef>

constexpr std::size_t kPathSize = 128;

// Index of the first argument from argv[1] on that equals `word`, or 0
// when none does. The program's own name is never matched.
int find_word(int argc, char *const argv[], const char *word);

// True when an argument asks for the help text: "help", or "--help" and
// "-h" as every other command-line program takes them (so that hw_start
// run on a workstation by mistake answers instead of starting).
bool asks_help(int argc, char *const argv[]);

// The store-path scan for one word ("dev3_file" or "dev_file="): at the
// first argument that contains the word, the text after the first "=" at
// or after the match goes into `path` (cut to 127 characters); an argument
// with no "=" there ends the scan without a path. Debug lines under the
// name main. Returns true when it stored a path (possibly empty).
bool scan_store_path(int argc, char *const argv[], const char *word, char (&path)[kPathSize]);
