// devinfo's usage text and the help of each command.
#pragma once

constexpr const char kUsage[] =
    "usage: devinfo COMMAND [ARGS]   (devinfo COMMAND --help for each)\n"
    "  show [--json] [STORE]         the record's fields, one key=value a line\n"
    "  get FIELD [STORE]             one field's value alone\n"
    "  verify [STORE]                report every problem of the record\n"
    "  create FILE (--board-id ID --board-name NAME --mac MAC [--p2p-id ID] [--guid HEX]\n"
    "              | --from RECORD) [--partition-size N --erase-size N]\n"
    "                                write a new record file, partition image or flash\n"
    "  set [--no-apply] [--force] [--backup FILE] [--in-place] [--take-copy-block]\n"
    "      [STORE] FIELD=VALUE...    change fields and save, as the board saves\n"
    "  recover [STORE]               put the record back from its copy if torn\n"
    "  shm [--json]                  the running board's shared identity block\n"
    "STORE is a record file, a partition image file (create --partition-size;\n"
    "kept whole, as the flash), or any path containing /dev/mtd for the flash\n"
    "partition /dev/mtdblock3 (the default), as with hw_start's dev3_file=.\n"
    "Exit status: 0 success, 1 a problem found or a refusal, 2 usage error.\n";

constexpr const char kShowHelp[] =
    "usage: devinfo show [--json] [STORE]\n"
    "Prints the record's fields, one key=value a line: magic_ok (yes/no),\n"
    "guid (its 24 bytes as 48 hexadecimal digits), board_id (0x-hexadecimal),\n"
    "board_name, mac, p2p_id. Text fields show printable ASCII as it is, a\n"
    "backslash as \\\\ and any other byte as \\xHH; a field with no NUL shows\n"
    "all 32 bytes. --json prints the same as one JSON object (magic_ok a\n"
    "boolean). Opens the store read-only. Exit status 1 when the store\n"
    "cannot be read.\n";

constexpr const char kGetHelp[] =
    "usage: devinfo get FIELD [STORE]\n"
    "Prints one field's value alone, as show prints it. FIELD is one of\n"
    "magic_ok guid board_id board_name mac p2p_id.\n";

constexpr const char kVerifyHelp[] =
    "usage: devinfo verify [STORE]\n"
    "Checks that the store holds a whole record with the magic, that every\n"
    "text field has its NUL within its 32 bytes, and that mac is six\n"
    "two-digit lower-case hexadecimal groups joined by colons naming an\n"
    "address that is not all-zero, broadcast or multicast. Prints each\n"
    "problem as \"field: what\" on standard output and exits 1 when there is\n"
    "one; prints nothing and exits 0 otherwise. On a partition image also\n"
    "a torn record block, a copy that holds another record, a damaged copy.\n";

constexpr const char kCreateHelp[] =
    "usage: devinfo create FILE (--board-id ID --board-name NAME --mac MAC [--p2p-id ID]\n"
    "                      [--guid HEX] | --from RECORD) [--partition-size N --erase-size N]\n"
    "                      [--in-place] [--take-copy-block]\n"
    "Makes a new 280-byte record: the magic, the GUID (48 hexadecimal digits,\n"
    "default zero), the board id (decimal or 0x-hexadecimal), the texts (at\n"
    "most 31 characters each) and zero reserved bytes; or, with --from, the\n"
    "record held by the record file RECORD, which must pass verify. The MAC\n"
    "must pass verify. Touches no network. Then writes it:\n"
    "- to a record file FILE, replaced whole under the lock set takes, keeping\n"
    "  its mode and owner;\n"
    "- with --partition-size N and --erase-size N (decimal or 0x-hexadecimal),\n"
    "  to FILE as an N-byte partition image for a flash programmer: the record\n"
    "  at 0, its copy in erase block 1, every other byte 0xFF;\n"
    "- to the flash partition when FILE selects the flash store: programmed\n"
    "  through /dev/mtd3 as set saves it (the copy, then the record), keeping\n"
    "  the rest of the record's erase block. --take-copy-block and --in-place\n"
    "  are as for set.\n";

constexpr const char kSetHelp[] =
    "usage: devinfo set [--no-apply] [--force] [--backup FILE] [--in-place]\n"
    "                   [--take-copy-block] [STORE] FIELD=VALUE...\n"
    "Reads the record, changes the named fields (guid board_id board_name mac\n"
    "p2p_id) and saves it as the board does: eth0 then carries the record's\n"
    "MAC and /config/mac holds it. Every other byte stays as it was read. An\n"
    "argument counts as FIELD=VALUE when it has a '=' with no '/' before it;\n"
    "write ./NAME for a store whose name has one.\n"
    "  --no-apply         write the store alone; eth0 and /config/mac stay as they are\n"
    "  --force            go on with a record whose magic is wrong, and with a file\n"
    "                     that is neither a record nor a partition image (it\n"
    "                     becomes a record file); write the magic\n"
    "  --backup FILE      first save the 280 bytes read into FILE (a record file;\n"
    "                     of a partition image, the whole image)\n"
    "  --in-place         flash of a single erase block (no room for a copy): erase\n"
    "                     and program the record in place, unprotected against a\n"
    "                     power cut\n"
    "  --take-copy-block  write the flash copy over an erase block that holds data\n"
    "                     devinfo did not write\n"
    "Refuses, leaving the store untouched: a value that does not fit its\n"
    "field (a MAC that verify refuses, a text over 31 characters, a bad board\n"
    "id or GUID), a record whose magic is wrong or a file that is neither a\n"
    "280-byte record nor a partition image (unless --force), a result\n"
    "that verify would refuse (name the broken field to replace it), and on\n"
    "the flash a partition of one erase block or foreign data where the copy\n"
    "goes (unless the options above).\n"
    "Writes nothing when the record would not change (says \"unchanged\").\n"
    "Holds the store's lock, a flock on a lock file only its writers may\n"
    "open (.NAME.lock beside a record file, /dev/.mtdblock3.lock for the\n"
    "flash). A record file is replaced whole through a renamed temporary\n"
    "file; a symbolic link that another user may have planted is not\n"
    "followed. A partition image is saved in memory as the flash is, then\n"
    "replaced whole. The flash is written through its MTD device /dev/mtd3: first a\n"
    "copy of the new record in the next good erase block (erased, programmed\n"
    "and read back), then the record's own erase block, so a power cut at any\n"
    "point leaves a whole record that `devinfo recover` puts in place. When a\n"
    "save fails, eth0 and /config/mac stay as they are and the message gives\n"
    "the command that restores the record read.\n";

constexpr const char kRecoverHelp[] =
    "usage: devinfo recover [STORE]\n"
    "Run at start, before hw_start. When a save on the flash was cut by a\n"
    "power loss and left the record's erase block erased or torn, puts the\n"
    "record back from its copy and says so in one line on standard error.\n"
    "Says nothing and writes nothing when the record is whole; keeps, and says\n"
    "so, a whole record other than the copy's (one written back by hand).\n"
    "Never writes the copy; waits at most 3 s for the lock. Exit status 1\n"
    "when no whole record exists anywhere (it says so; nothing written) or\n"
    "the restore failed. A partition image file is repaired the same way and\n"
    "replaced whole. A record file, or a board without /dev/mtd3, has\n"
    "nothing to recover: exit status 0, nothing said.\n";

constexpr const char kShmHelp[] =
    "usage: devinfo shm [--json]\n"
    "Prints the shared identity block that hw_start wrote at boot (System V\n"
    "shared memory keyed by ftok(\"/mnt/mtd/app/hw_start\", 120)): magic,\n"
    "guid, run_mode, name and flag. Exit status 1 when there is no block or\n"
    "its magic or flag is wrong.\n";
