// Standard input, output and error that are surely open.
#pragma once

// Opens /dev/null on each of descriptors 0, 1 and 2 that is closed, so
// that no store, socket or mapping the program opens later becomes its
// standard input, output or error and receives what it prints. Call it
// first thing in main. False when /dev/null could not be opened: a
// descriptor below 3 is then still closed.
bool ensure_std_fds();
