/*
 * Test program: reads the shared identity block the way a board program
 * written in C does, through hw_start/shmem_info.h alone, and prints it in
 * the key=value form of `devinfo shm` (the name unescaped):
 *   magic=0x...  guid=<48 hex digits>  run_mode=0x...  name=...  flag=0x...
 * Exit status 0, or 1 when the block cannot be read (reason on stderr).
 */
#include <errno.h>
#include <stdio.h>
#include <string.h>

#include "hw_start/shmem_info.h"

int main(void)
{
    struct shmem_info info;
    const void *nul;
    int name_len;
    int i;

    if (shmem_info_read(&info) != 0) {
        fprintf(stderr, "shm_reader_c: %s\n", strerror(errno));
        return 1;
    }
    printf("magic=0x%x\n", (unsigned)info.magic);
    printf("guid=");
    for (i = 0; i < SHMEM_INFO_GUID_SIZE; ++i)
        printf("%02x", (unsigned)info.guid[i]);
    printf("\n");
    printf("run_mode=0x%x\n", (unsigned)info.run_mode);
    nul = memchr(info.name, '\0', sizeof info.name);
    name_len = nul != NULL ? (int)((const char *)nul - info.name) : (int)sizeof info.name;
    printf("name=%.*s\n", name_len, info.name);
    printf("flag=0x%x\n", (unsigned)info.flag);
    return 0;
}
