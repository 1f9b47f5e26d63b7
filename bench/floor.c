/* The floor of a start made the way hw_start makes it: a program built and
 * linked as hw_start is (dynamically, against the C library alone) that
 * does nothing but run the shell commands of one start through system(),
 * in the same order and with the same texts, and then waits as hw_start
 * does, one second at a time. bench/run writes the texts, taken from a
 * start of hw_start, into floor_commands.h (the array `commands`). */
#include <stddef.h>
#include <stdlib.h>
#include <sys/select.h>

#include "floor_commands.h"

int main(void)
{
    for (size_t i = 0; i < sizeof commands / sizeof commands[0]; ++i) {
        /* As hw_start, it goes on whatever a command returned (FORTIFY
         * marks system()'s result as one to be used). */
        if (system(commands[i]) != 0)
            continue;
    }
    for (;;) {
        struct timeval tv = {1, 0};
        select(0, NULL, NULL, NULL, &tv);
    }
}
