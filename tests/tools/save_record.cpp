// Test-only tool, run inside the board sandbox: saves a record through the
// board object as a provisioning program would, which also sets its MAC on
// eth0 and rewrites /config/mac. Never shipped.
//
//   save_record [debug] STORE RECORD   reads the first 280 bytes of the file
//                                      RECORD (zero-padded when shorter),
//                                      points the board object at STORE
//                                      (SetDevFile) and saves it there
//                                      (SaveDevInfo); prints
//                                      "save_record: <result>"
//
// Exit status: 0 when the save returned 0, 1 when it failed, 2 on a usage
// error or an unreadable RECORD.
#include <cstdio>
#include <cstring>

#include "ax630c_qm/device.h"
#include "devinfo/dev_info.h"
#include "log/log.h"

int main(int argc, char *argv[])
{
    // As in hw_start: nothing waits in a buffer while the commands run, so
    // the debug lines and what the commands print keep their order.
    std::setvbuf(stdout, nullptr, _IONBF, 0);

    int first = 1;
    if (argc > 1 && std::strcmp(argv[1], "debug") == 0) {
        set_debug_flag(1);
        first = 2;
    }
    if (argc - first != 2) {
        std::fprintf(stderr, "usage: save_record [debug] STORE RECORD\n");
        return 2;
    }
    dev_info rec;
    std::memset(&rec, 0, sizeof rec);
    std::FILE *in = std::fopen(argv[first + 1], "rb");
    if (in == nullptr) {
        std::perror(argv[first + 1]);
        return 2;
    }
    const bool read_failed = std::fread(&rec, 1, sizeof rec, in) == 0 && std::ferror(in) != 0;
    std::fclose(in);
    if (read_failed) {
        std::perror(argv[first + 1]);
        return 2;
    }

    CDevice *dev = CreateDevice("");
    if (dev == nullptr)
        return 1;
    dev->SetDevFile(argv[first]);
    const int rc = dev->SaveDevInfo(&rec);
    std::printf("save_record: %d\n", rc);
    delete dev;
    return rc == 0 ? 0 : 1;
}
