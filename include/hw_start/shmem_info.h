/*
 * The board's shared identity block: 96 bytes of System V shared memory
 * that hw_start writes once per boot, before it starts the application
 * programs. Usable from C and C++; readers attach it read-only.
 *
 * Layout, native (little-endian) byte order, no padding:
 *   0  magic     u32   0x95279528
 *   4  guid      24    Data1 (u64) at 4, Data2 (u16) at 12, Data3 (u16) at
 *                      14, Data4 (8 bytes) at 16, 4 padding bytes at 24
 *   28 run_mode  u32
 *   32 name      32    board name, NUL-terminated, zero-padded
 *   64 flag      u32   0x78CFDE02
 *   68 reserved  28    zero
 */
#ifndef HW_START_SHMEM_INFO_H
#define HW_START_SHMEM_INFO_H

#include <stddef.h>
#include <stdint.h>
#include <string.h>
#include <sys/ipc.h>
#include <sys/shm.h>

#define SHMEM_INFO_KEY_PATH "/mnt/mtd/app/hw_start"
#define SHMEM_INFO_PROJ_ID 120
#define SHMEM_INFO_SIZE 96
#define SHMEM_INFO_MAGIC 0x95279528u
#define SHMEM_INFO_FLAG 0x78CFDE02u
#define SHMEM_INFO_PERMS 0604
#define SHMEM_INFO_GUID_SIZE 24
#define SHMEM_INFO_NAME_SIZE 32

/* The GUID sits at offset 4, so it is kept as bytes: a 64-bit member
 * there would force padding on every ABI. */
struct shmem_info {
    uint32_t magic;
    uint8_t guid[SHMEM_INFO_GUID_SIZE];
    uint32_t run_mode;
    char name[SHMEM_INFO_NAME_SIZE];
    uint32_t flag;
    uint8_t reserved[28];
};

#if defined(__cplusplus)
#define SHMEM_INFO_STATIC_ASSERT(cond, msg) static_assert(cond, msg)
#elif defined(__STDC_VERSION__) && __STDC_VERSION__ >= 201112L
#define SHMEM_INFO_STATIC_ASSERT(cond, msg) _Static_assert(cond, msg)
#else
/* Before C11: an array of negative size stops the build instead. */
#define SHMEM_INFO_CAT_(a, b) a##b
#define SHMEM_INFO_CAT(a, b) SHMEM_INFO_CAT_(a, b)
#define SHMEM_INFO_STATIC_ASSERT(cond, msg)                                                        \
    typedef char SHMEM_INFO_CAT(shmem_info_assert_line_, __LINE__)[(cond) ? 1 : -1]
#endif

SHMEM_INFO_STATIC_ASSERT(sizeof(struct shmem_info) == SHMEM_INFO_SIZE, "shmem_info is 96 bytes");
SHMEM_INFO_STATIC_ASSERT(offsetof(struct shmem_info, magic) == 0, "shmem_info.magic offset");
SHMEM_INFO_STATIC_ASSERT(offsetof(struct shmem_info, guid) == 4, "shmem_info.guid offset");
SHMEM_INFO_STATIC_ASSERT(offsetof(struct shmem_info, run_mode) == 28, "shmem_info.run_mode offset");
SHMEM_INFO_STATIC_ASSERT(offsetof(struct shmem_info, name) == 32, "shmem_info.name offset");
SHMEM_INFO_STATIC_ASSERT(offsetof(struct shmem_info, flag) == 64, "shmem_info.flag offset");
SHMEM_INFO_STATIC_ASSERT(offsetof(struct shmem_info, reserved) == 68, "shmem_info.reserved offset");

/* Copies the running board's block into *out. Attaches read-only, copies
 * the 96 bytes and detaches. Returns 0, or -1 (errno set) when the key
 * file is missing, the segment does not exist, is smaller than 96 bytes
 * or cannot be attached; *out is untouched then. */
static inline int shmem_info_read(struct shmem_info *out)
{
    key_t key;
    int id;
    void *addr;

    key = ftok(SHMEM_INFO_KEY_PATH, SHMEM_INFO_PROJ_ID);
    if (key == (key_t)-1)
        return -1;
    id = shmget(key, SHMEM_INFO_SIZE, 0);
    if (id < 0)
        return -1;
    addr = shmat(id, NULL, SHM_RDONLY);
    if (addr == (void *)-1)
        return -1;
    memcpy(out, addr, SHMEM_INFO_SIZE);
    shmdt(addr);
    return 0;
}

#endif
