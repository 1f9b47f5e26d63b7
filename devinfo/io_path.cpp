#include "devinfo/io_path.h"

#include <cstring>

bool store_is_flash(const char *path)
{
    return std::strstr(path, "/dev/mtd") != nullptr;
}

const char *store_file(const char *store)
{
    return store_is_flash(store) ? kFlashDevice : store;
}
