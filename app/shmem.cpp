#include "app/shmem.h"

#include <cstdint>
#include <cstdio>
#include <cstring>

#include "log/log.h"

shmem_info make_shmem_info(std::uint32_t run_mode, const char *name, const GUID *guid)
{
    shmem_info info;
    std::memset(&info, 0, sizeof info);
    info.magic = SHMEM_INFO_MAGIC;
    std::memcpy(info.guid, guid, sizeof info.guid);
    info.run_mode = run_mode;
    std::snprintf(info.name, sizeof info.name, "%s", name);
    info.flag = SHMEM_INFO_FLAG;
    return info;
}

int write_shmem1(std::uint32_t run_mode, const char *name, const GUID *guid)
{
    const shmem_info info = make_shmem_info(run_mode, name, guid);

    const key_t key = ftok(SHMEM_INFO_KEY_PATH, SHMEM_INFO_PROJ_ID);
    const int shmid = shmget(key, sizeof info, kShmFlags);
    if (shmid == -1) {
        log_notice_line(__func__, "shmget error !!");
        return -1;
    }
    void *shared_memory = shmat(shmid, nullptr, 0);
    if (shared_memory == reinterpret_cast<void *>(-1)) {
        log_notice_line(__func__, "shmat error !!");
        return -1;
    }

    // The GUID sits unaligned at offset 4: read its members by copy.
    std::uint64_t data1 = 0;
    std::uint16_t data2 = 0;
    std::uint16_t data3 = 0;
    std::memcpy(&data1, info.guid + offsetof(GUID, Data1), sizeof data1);
    std::memcpy(&data2, info.guid + offsetof(GUID, Data2), sizeof data2);
    std::memcpy(&data3, info.guid + offsetof(GUID, Data3), sizeof data3);
    log_notice(__func__, "creat_shm ok, shmid = %d, shared_memory = 0x%x !!\n", shmid,
               static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(shared_memory)));
    log_notice(__func__, "shmem_info.run_mode = 0x%x !!\n", info.run_mode);
    log_notice(__func__, "shmem_info.guid.Data1 = 0x%x !!\n", static_cast<unsigned>(data1));
    log_notice(__func__, "shmem_info.guid.Data2 = 0x%x !!\n", static_cast<unsigned>(data2));
    log_notice(__func__, "shmem_info.guid.Data3 = 0x%x !!\n", static_cast<unsigned>(data3));
    log_notice(__func__, "shmem_info.name = %s\n", info.name);

    std::memcpy(shared_memory, &info, sizeof info);
    return 0;
}
