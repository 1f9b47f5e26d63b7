// Test-only tool, run inside the board sandbox: reads the record through
// the board object as start-up does, so a test can compare all 280 bytes
// with what was saved. Never shipped.
//
//   read_record [debug] STORE OUT   points the board object at STORE
//                                   (SetDevFile), reads into a zero-filled
//                                   record (ReadDevInfo), writes the 280
//                                   bytes to the file OUT and prints
//                                   "read_record: <result>"
//
// Exit status: 0 when the read returned 0, 1 when it failed, 2 on a usage
// error or when OUT cannot be written.
#include <cstdio>
#include <cstring>

#include "ax630c_qm/device.h"
#include "devinfo/dev_info.h"
#include "log/log.h"

int main(int argc, char *argv[])
{
    std::setvbuf(stdout, nullptr, _IONBF, 0);

    int first = 1;
    if (argc > 1 && std::strcmp(argv[1], "debug") == 0) {
        set_debug_flag(1);
        first = 2;
    }
    if (argc - first != 2) {
        std::fprintf(stderr, "usage: read_record [debug] STORE OUT\n");
        return 2;
    }

    CDevice *dev = CreateDevice("");
    if (dev == nullptr)
        return 1;
    dev->SetDevFile(argv[first]);
    dev_info rec;
    std::memset(&rec, 0, sizeof rec);
    const int rc = dev->ReadDevInfo(&rec);
    delete dev;

    std::FILE *out = std::fopen(argv[first + 1], "wb");
    if (out == nullptr) {
        std::perror(argv[first + 1]);
        return 2;
    }
    const bool written = std::fwrite(&rec, 1, sizeof rec, out) == sizeof rec;
    if (std::fclose(out) != 0 || !written) {
        std::perror(argv[first + 1]);
        return 2;
    }
    std::printf("read_record: %d\n", rc);
    return rc == 0 ? 0 : 1;
}
