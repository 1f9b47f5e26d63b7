// Where the record library's messages go. The library never prints by
// itself: each program hands it a Say, which gets one line at a time
// without its line end (devinfo writes them to standard error, hw_start as
// debug lines).
#pragma once

using Say = void (*)(const char *line);

// Formats the message into a bounded buffer (a longer one is cut) and
// hands it to `say`; nothing when `say` is null. errno is kept, so a
// caller may still report it afterwards.
void say_line(Say say, const char *fmt, ...) __attribute__((format(printf, 2, 3)));
