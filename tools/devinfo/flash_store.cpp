// devinfo recover, and the flash store's opening and saving shared by set
// and create.
#include "tools/devinfo/flash_store.h"

#include <cerrno>
#include <cstring>
#include <linux/fs.h>
#include <sys/ioctl.h>

#include "devinfo/store.h"
#include "tools/devinfo/cli.h"
#include "tools/devinfo/commands.h"
#include "tools/devinfo/help.h"
#include "tools/devinfo/store_io.h"

namespace {

// A device node that is not there, or has no driver behind it.
bool no_device(int error)
{
    return error == ENOENT || error == ENODEV || error == ENXIO;
}

} // namespace

bool open_flash_store(CMtdFlash *mtd, FlashState *st)
{
    if (!mtd->Open(kFlashMtdDevice)) {
        diag("cannot save to %s: %s %s: %s; nothing written", kFlashDevice,
             no_device(errno) ? "no MTD character device" : "cannot open", kFlashMtdDevice,
             std::strerror(errno));
        return false;
    }
    return load_flash(*mtd, kFlashDevice, st);
}

void drop_block_cache(int fd)
{
    if (::ioctl(fd, BLKFLSBUF, 0) != 0)
        diag("%s: cannot drop its page cache: %s (readers of it may see the old bytes until "
             "the next start)",
             kFlashDevice, std::strerror(errno));
}

SaveResult save_flash_store(CMtdFlash &mtd, FlashState &st, int lock_fd, const dev_info &rec,
                            const FlashOptions &options)
{
    const SaveResult result = save_to_flash(mtd, st, rec, options, kFlashDevice);
    if (result != SaveResult::kept)
        drop_block_cache(lock_fd);
    return result;
}

int cmd_recover(int argc, char *argv[])
{
    int first = 0;
    int rc = parse_options(argc, argv, nullptr, 0, kRecoverHelp, &first);
    if (rc >= 0)
        return rc;
    if (argc - first > 1)
        return usage_error(kRecoverHelp, "too many arguments");
    const char *store = first < argc ? argv[first] : kFlashDevice;
    if (!store_path_ok(store, kRecoverHelp, &rc))
        return rc;
    // A record file is replaced whole by every save: nothing to recover.
    CMtdFlash mtd;
    if (!store_is_flash(store) || (!mtd.Open(kFlashMtdDevice) && no_device(errno)))
        return kExitOk;
    if (!mtd.ok()) {
        diag("cannot recover %s: cannot open %s: %s", kFlashDevice, kFlashMtdDevice,
             std::strerror(errno));
        return kExitProblem;
    }
    bool missing = false;
    const unique_fd lock = lock_store(store, Access::write, &missing);
    FlashState st;
    if ((!missing && !lock.ok()) || !load_flash(mtd, kFlashDevice, &st))
        return kExitProblem;
    bool wrote = false;
    const bool whole = recover_flash(mtd, st, kFlashDevice, &wrote);
    if (wrote && lock.ok())
        drop_block_cache(lock.get());
    return whole ? kExitOk : kExitProblem;
}
