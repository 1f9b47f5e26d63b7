// Writer of the shared identity block (layout in hw_start/shmem_info.h).
#pragma once

#include <cstdint>

#include "devinfo/devinfo.h"
#include "hw_start/shmem_info.h"

// shmget flags: IPC_CREAT with access bits 0604, without IPC_EXCL.
constexpr int kShmFlags = 900;
static_assert(kShmFlags == (IPC_CREAT | SHMEM_INFO_PERMS), "shm flags are IPC_CREAT | 0604");

// Builds the 96-byte block (magic, the 24 GUID bytes, run mode, `name` cut
// to 31 characters, flag) and copies it into the segment keyed by
// ftok("/mnt/mtd/app/hw_start", 120), creating it when missing. Returns 0,
// or -1 after a debug line when the segment cannot be got or attached;
// nothing is written then. The segment stays attached.
int write_shmem1(std::uint32_t run_mode, const char *name, const GUID *guid);

// The block write_shmem1 would write, without touching shared memory.
shmem_info make_shmem_info(std::uint32_t run_mode, const char *name, const GUID *guid);
