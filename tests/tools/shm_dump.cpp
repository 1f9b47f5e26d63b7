// Test-only tool, run inside the board sandbox: reads (or creates) the
// System V shared-memory segment of the shared identity block, found the
// way hw_start finds it, by ftok("/mnt/mtd/app/hw_start", 120). Never
// shipped.
//
//   shm_dump [OUT]                  writes the whole segment (96 bytes when
//                                   hw_start made it) raw to OUT (default
//                                   /tmp/shm.bin) and prints
//                                   "shmid=%d size=%zu mode=0%o" (IPC_STAT)
//   shm_dump --create SIZE [MODE]   creates the segment with SIZE bytes and
//                                   access bits MODE (octal, default 0604),
//                                   failing when it exists; prints "shmid=%d"
//
// Exit status: 0 on success, 1 when the segment is missing or a call
// failed (the reason on standard error), 2 on a usage error.
#include <sys/ipc.h>
#include <sys/shm.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr const char *kKeyPath = "/mnt/mtd/app/hw_start";
constexpr int kProjectId = 120;

int fail(const char *what)
{
    std::fprintf(stderr, "shm_dump: %s: %s\n", what, std::strerror(errno));
    return 1;
}

int create(key_t key, const char *size_text, const char *mode_text)
{
    char *size_end = nullptr;
    char *mode_end = nullptr;
    const unsigned long size = std::strtoul(size_text, &size_end, 0);
    const unsigned long mode = std::strtoul(mode_text, &mode_end, 8);
    if (*size_text == '\0' || *size_end != '\0' || *mode_text == '\0' || *mode_end != '\0' ||
        mode > 0777) {
        std::fprintf(stderr, "shm_dump: bad SIZE or MODE\n");
        return 2;
    }
    int id = shmget(key, size, IPC_CREAT | IPC_EXCL | static_cast<int>(mode));
    if (id == -1)
        return fail("shmget");
    std::printf("shmid=%d\n", id);
    return 0;
}

int dump(key_t key, const char *out_path)
{
    int id = shmget(key, 0, 0);
    if (id == -1)
        return fail("no segment for the key");
    struct shmid_ds ds;
    if (shmctl(id, IPC_STAT, &ds) == -1)
        return fail("shmctl IPC_STAT");
    void *addr = shmat(id, nullptr, SHM_RDONLY);
    if (addr == reinterpret_cast<void *>(-1))
        return fail("shmat");
    std::FILE *out = std::fopen(out_path, "wb");
    if (out == nullptr)
        return fail(out_path);
    bool ok = std::fwrite(addr, 1, ds.shm_segsz, out) == ds.shm_segsz;
    ok = std::fclose(out) == 0 && ok;
    shmdt(addr);
    if (!ok)
        return fail(out_path);
    std::printf("shmid=%d size=%zu mode=0%o\n", id, static_cast<std::size_t>(ds.shm_segsz),
                static_cast<unsigned>(ds.shm_perm.mode & 0777));
    return 0;
}

} // namespace

int main(int argc, char *argv[])
{
    const key_t key = ftok(kKeyPath, kProjectId);
    const bool creating = argc > 1 && std::strcmp(argv[1], "--create") == 0;
    if (creating ? argc < 3 || argc > 4 : argc > 2) {
        std::fprintf(stderr, "usage: shm_dump [OUT] | --create SIZE [MODE]\n");
        return 2;
    }
    if (creating)
        return create(key, argv[2], argc == 4 ? argv[3] : "0604");
    return dump(key, argc == 2 ? argv[1] : "/tmp/shm.bin");
}
