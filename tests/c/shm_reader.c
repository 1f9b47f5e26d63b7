/*
 * Test program: reads the shared identity block the way a board program
 * written in C does, through hw_start/shmem_info.h alone, and prints it as
 * `devinfo shm` does (magic, guid, run_mode, name, flag; the name as it is).
 * Exit status 0, or 1 when the block cannot be read (reason on stderr).
 */
#include <errno.h>
#include <stdio.h>
#include <string.h>

#include "hw_start/shmem_info.h"

int main(void)
{
    struct shmem_info info;
    int i;

    if (shmem_info_read(&info) != 0) {
        fprintf(stderr, "shm_reader_c: %s\n", strerror(errno));
        return 1;
    }
    printf("magic=0x%x\nguid=", (unsigned)info.magic);
    for (i = 0; i < SHMEM_INFO_GUID_SIZE; ++i)
        printf("%02x", (unsigned)info.guid[i]);
    /* The precision stops at the name's end, with or without its NUL. */
    printf("\nrun_mode=0x%x\nname=%.*s\nflag=0x%x\n", (unsigned)info.run_mode,
           (int)sizeof info.name, info.name, (unsigned)info.flag);
    return 0;
}
