// devinfo's commands. Each takes the arguments from its command word on
// (argv[0] is the word) and returns the exit status.
#pragma once

int cmd_show(int argc, char *argv[]);
int cmd_get(int argc, char *argv[]);
int cmd_verify(int argc, char *argv[]);
int cmd_create(int argc, char *argv[]);
int cmd_set(int argc, char *argv[]);
int cmd_shm(int argc, char *argv[]);
int cmd_recover(int argc, char *argv[]);

#include "devinfo/devinfo.h"

// How set and create may save to the flash where it leaves no safe way.
struct FlashOptions {
    bool in_place;        // no room for a copy: write the record in place
    bool take_copy_block; // write the copy over data devinfo did not write
};

// Saves `rec` into `store`, which `held` holds: in place when the flash has
// no room for a copy and `options` allow it. Says what failed; after a
// refusal, which option would go on; on the flash, after a save that failed
// half-way, where the new record is.
SaveResult save_held(CRecordStore &held, const char *store, const dev_info &rec,
                     const FlashOptions &options);
