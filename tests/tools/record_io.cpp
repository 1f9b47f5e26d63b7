// Test-only tool, run inside the board sandbox: saves a record through the
// board object as a provisioning program would, or reads one back as
// start-up does. Never shipped.
//
//   record_io save [debug] STORE RECORD
//       reads the first 280 bytes of the file RECORD (zero-padded when
//       shorter), points the board object at STORE (SetDevFile) and saves
//       them there (SaveDevInfo), which also sets the MAC on eth0 and
//       rewrites /config/mac; prints "record_io save: <result>"
//   record_io read [debug] STORE OUT
//       points the board object at STORE, reads into a zero-filled record
//       (ReadDevInfo), writes its 280 bytes to the file OUT and prints
//       "record_io read: <result>"
//
// Exit status: 0 when the save or read returned 0, 1 when it failed, 2 on a
// usage error, an unreadable RECORD or an unwritable OUT.
#include <cstdio>
#include <cstring>

#include "ax630c_qm/device.h"
#include "devinfo/devinfo.h"
#include "log/log.h"

int main(int argc, char *argv[])
{
    // As in hw_start: nothing waits in a buffer while the commands run, so
    // the debug lines and what the commands print keep their order.
    std::setvbuf(stdout, nullptr, _IONBF, 0);

    const bool save = argc > 1 && std::strcmp(argv[1], "save") == 0;
    const bool read = argc > 1 && std::strcmp(argv[1], "read") == 0;
    int first = 2;
    if (argc > first && std::strcmp(argv[first], "debug") == 0) {
        set_debug_flag(1);
        ++first;
    }
    if (!(save || read) || argc - first != 2) {
        std::fprintf(stderr, "usage: record_io save|read [debug] STORE FILE\n");
        return 2;
    }
    const char *file = argv[first + 1];
    dev_info rec;
    std::memset(&rec, 0, sizeof rec);
    if (save) {
        std::FILE *in = std::fopen(file, "rb");
        const bool ok = in != nullptr &&
                        (std::fread(&rec, 1, sizeof rec, in) > 0 || std::ferror(in) == 0);
        if (in == nullptr || std::fclose(in) != 0 || !ok) {
            std::perror(file);
            return 2;
        }
    }

    CDevice *dev = CreateDevice("");
    if (dev == nullptr)
        return 1;
    dev->SetDevFile(argv[first]);
    const int rc = save ? dev->SaveDevInfo(&rec) : dev->ReadDevInfo(&rec);
    delete dev;

    if (read) {
        std::FILE *out = std::fopen(file, "wb");
        const bool written = out != nullptr && std::fwrite(&rec, 1, sizeof rec, out) == sizeof rec;
        if (out == nullptr || std::fclose(out) != 0 || !written) {
            std::perror(file);
            return 2;
        }
    }
    std::printf("record_io %s: %d\n", argv[1], rc);
    return rc == 0 ? 0 : 1;
}
