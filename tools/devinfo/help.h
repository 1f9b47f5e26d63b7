// devinfo's usage text and the help of each command.
#pragma once

constexpr const char kUsage[] =
    "usage: devinfo COMMAND [ARGS]   (devinfo COMMAND --help for each)\n"
    "  show [--json] [STORE]         the record's fields, one key=value a line\n"
    "  get FIELD [STORE]             one field's value alone\n"
    "  verify [STORE]                report every problem of the record\n"
    "  create FILE --board-id ID --board-name NAME --mac MAC [--p2p-id ID] [--guid HEX]\n"
    "                                write a new record file\n"
    "  set [--no-apply] [--force] [--backup FILE] [STORE] FIELD=VALUE...\n"
    "                                change fields and save, as the board saves\n"
    "  shm [--json]                  the running board's shared identity block\n"
    "STORE is a record file, or any path containing /dev/mtd for the flash\n"
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
    "one; prints nothing and exits 0 otherwise.\n";

constexpr const char kCreateHelp[] =
    "usage: devinfo create FILE --board-id ID --board-name NAME --mac MAC\n"
    "                      [--p2p-id ID] [--guid HEX]\n"
    "Writes a new 280-byte record file: the magic, the GUID (48 hexadecimal\n"
    "digits, default zero), the board id (decimal or 0x-hexadecimal), the\n"
    "texts (at most 31 characters each) and zero reserved bytes. The MAC must\n"
    "pass verify. An existing FILE is replaced whole, under the lock set\n"
    "takes, keeping its mode and owner. Touches no network and refuses a FILE\n"
    "that names the flash partition (use set for that).\n";

constexpr const char kSetHelp[] =
    "usage: devinfo set [--no-apply] [--force] [--backup FILE] [STORE] FIELD=VALUE...\n"
    "Reads the record, changes the named fields (guid board_id board_name mac\n"
    "p2p_id) and saves it as the board does: eth0 then carries the record's\n"
    "MAC and /config/mac holds it. Every other byte stays as it was read. An\n"
    "argument counts as FIELD=VALUE when it has a '=' with no '/' before it;\n"
    "write ./NAME for a store whose name has one.\n"
    "  --no-apply     write the store alone; eth0 and /config/mac stay as they are\n"
    "  --force        go on with a record whose magic is wrong or that is short,\n"
    "                 and write the magic\n"
    "  --backup FILE  first save the 280 bytes read into FILE (a record file)\n"
    "Refuses, leaving the store untouched: a value that does not fit its\n"
    "field (a MAC that verify refuses, a text over 31 characters, a bad board\n"
    "id or GUID), a record whose magic is wrong (unless --force), and a\n"
    "result that verify would refuse (name the broken field to replace it).\n"
    "Writes nothing when the record would not change (says \"unchanged\").\n"
    "Holds an exclusive flock on the store (on /dev/mtdblock3 for the flash\n"
    "store). A record file is replaced whole through a renamed temporary\n"
    "file; the flash is written in place, synced and read back from the\n"
    "device. When a save fails, eth0 and /config/mac stay as they are and the\n"
    "message gives the command that restores the record read.\n";

constexpr const char kShmHelp[] =
    "usage: devinfo shm [--json]\n"
    "Prints the shared identity block that hw_start wrote at boot (System V\n"
    "shared memory keyed by ftok(\"/mnt/mtd/app/hw_start\", 120)): magic,\n"
    "guid, run_mode, name and flag. Exit status 1 when there is no block or\n"
    "its magic or flag is wrong.\n";
