#include <cstring>

#include "app/shmem.h"
#include "app/startup.h"
#include "log/log.h"
#include "base/shell.h"

int boot(std::uint32_t run_mode, const dev_info *rec, CDevice *dev)
{
    GUID guid;
    std::memset(&guid, 0, sizeof guid);
    dev->GetGuid(&guid);

    char name[kTextFieldSize];
    read_text_field(rec->board_name, name);

    log_notice_line(__func__, "begin write_shmem1");
    write_shmem1(run_mode, name, &guid);

    log_notice_line(__func__, "begin CreateWorkModeID");
    dev->CreateWorkModeID(rec->board_id);

    log_notice_line(__func__, "begin boot");
    // The board name comes from flash: it reaches the shell as one word.
    char word[kMaxQuotedField + 1];
    shell_quote(name, word, sizeof word);
    char cmd[kCommandSize];
    if (format_command(cmd, "cd /mnt/mtd/app/; /mnt/mtd/app/vrn_ddns_client dev_type=%s &", word))
        run_command(cmd);
    run_command("cd /mnt/mtd/app/; /mnt/mtd/app/gui 1>/dev/console 2>&1 &");
    return 0;
}
