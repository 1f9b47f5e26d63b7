// The board's start table: one row per situation a start meets.
#include "boot_table.h"

#include <random>

namespace hwtest {
namespace {

Row Texts(const char *row, const Str &name, const Str &mac)
{
    return Row(row).Record(MakeRecord(0x851, name, mac)).Takes(name, mac, "851");
}

// A row whose start reads the record file /tmp/rec (or one the row adds).
Row FromFile(const char *row, Strings args)
{
    return Row(row).Args(std::move(args)).Takes("FROM_FILE_0123456789", kSandboxMac, "2222");
}

// --- the rows ---------------------------------------------------------------------

Row RandomRecord(const char *name)
{
    std::mt19937 rng(20250424u); // mt19937's output is the same everywhere
    Str rec(280, '\0');
    for (char &c : rec)
        c = static_cast<char>(rng() & 0xff);
    for (std::size_t field : {36u, 68u, 100u})
        rec[field + 1 + rng() % 31] = '\0';
    rec.replace(32, 4, "\x51\x08\0\0", 4);
    return Row(name).Record(rec).Takes(TextField(rec, 36), TextField(rec, 68), "851");
}

Strings ManyArgs(int count)
{
    Strings args;
    for (int i = 1; i <= count; ++i)
        args.push_back("arg" + std::to_string(i));
    args.back() = "dev_file=/tmp/rec"; // found behind 9,999 others
    return args;
}

// `count` default routes in tables of their own: the lookup's dump covers
// every table and must fit 8192 bytes. One `ip` each: BusyBox's has no -batch.
Str OtherTables(int count)
{
    return "i=0; while [ $i -lt " + std::to_string(count) +
           " ]; do i=$((i + 1)); ip route add default via 192.168.77.$((i % 250 + 2))"
           " table $((i + 500)); done"; // BusyBox ip: table ids below 1024
}

const Strings kHelp = {"support cmd list:", "help: show this menu", "version: show version",
                       "debug: work with debug info output",
                       "dev3_file=xxxxxx: save device info to file xxxx, xxxx must include absolute "
                       "path, if use mtdblock, set xxxxx like this: /dev/mtdblock3"};
const Str kPath127 = "/data/" + Str(121, 'p');
const Str kOld = "left by an earlier boot";
// A first start on the same board, from another record; the row's start is the second.
const Str kFirstStart = "hw dev3_file=/tmp/first >/dev/null 2>&1 & p=$!; n=0\n"
                        "while [ ! -e /var/run/gui.args ] && [ $n -lt 100 ]; do sleep 0.1; "
                        "n=$((n + 1)); done; kill $p; wait $p\n"
                        "$HW_RUNNER /sbin/shm_dump /tmp/shm0.bin >/tmp/shm0.info\n"
                        "rm -f /var/run/*.args /var/log/sh.log; : >/dev/console";

} // namespace

const std::vector<Row> &BootRows()
{
    static const std::vector<Row> rows = {
        // --- the command line ---
        Row("NoArguments").Lines({kDdns}),
        Row("HelpWinsOverAnEarlierVersion").Args({"version", "debug", "help"}).Exits().Lines(kHelp),
        // As every other program answers them: run on a workstation, nothing starts.
        Row("DoubleDashHelpAsHelp").Args({"version", "--help"}).Exits().Lines(kHelp),
        Row("DashHAsHelp").Args({"dev3_file=/tmp/rec", "-h"}).Exits().Lines(kHelp),
        // Before any scan, so the debug word shows nothing.
        Row("VersionEndsBeforeTheScans").Args({"debug", "dev3_file=/tmp/rec", "version"}).Exits()
            .Lines({"<version>"}),
        Row("WordsThatAreNotExactAreOnlyEchoed").Args({"Help", "versions", "xdebug", "debug2", ""})
            .Lines({kDdns}),
        FromFile("StorePathWithoutDebug", {"dev3_file=/tmp/rec=1"}).File("/tmp/rec=1", kFile)
            .Lines({kDdns}).Memcheck(),
        FromFile("WordInsideAnArgumentAndDebugLast", {"xdev3_file_a=/tmp/rec", "debug"})
            .Lines({kTag + "main:arg1 = xdev3_file_a=/tmp/rec, file = <ptr>",
                    kTag + "main:dev file = dev3_file_a=/tmp/rec", kTag + "main:dev file1 = /tmp/rec",
                    kTag + "main:arg1 = xdev3_file_a=/tmp/rec, file = (nil)",
                    kTag + "main:arg2 = debug, file = (nil)",
                    kTag + "SetDevFile:set dev info file /tmp/rec", kTag + kFileRead}),
        Row("NoEqualsEndsTheFirstScan").Args({"debug", "dev3_file", "dev3_file=/tmp/rec"})
            .Lines({kTag + "main:arg1 = debug, file = (nil)", kTag + "main:arg2 = dev3_file, file = <ptr>",
                    kTag + "main:dev file = dev3_file", kTag + "main:arg1 = debug, file = (nil)",
                    kTag + "main:arg2 = dev3_file, file = (nil)",
                    kTag + "main:arg3 = dev3_file=/tmp/rec, file = (nil)", kTag + kFlashRead}),
        FromFile("DevFileReplacesDev3File", {"debug", "dev3_file=/tmp/a", "mydev_file=/tmp/rec"})
            .Lines({kTag + "main:arg1 = debug, file = (nil)",
                    kTag + "main:arg2 = dev3_file=/tmp/a, file = <ptr>",
                    kTag + "main:dev file = dev3_file=/tmp/a", kTag + "main:dev file1 = /tmp/a",
                    kTag + "main:arg1 = debug, file = (nil)",
                    kTag + "main:arg2 = dev3_file=/tmp/a, file = (nil)",
                    kTag + "main:arg3 = mydev_file=/tmp/rec, file = <ptr>",
                    kTag + "main:dev file = dev_file=/tmp/rec", kTag + "main:dev file1 = /tmp/rec",
                    kTag + "SetDevFile:set dev info file /tmp/rec", kTag + kFileRead}),
        Row("EmptyPathKeepsTheFlash").Args({"debug", "dev3_file="}).Log("main:dev file1 = ")
            .Log(kFlashRead),
        FromFile("TenThousandArguments", ManyArgs(10000)),
        Row("NotUtf8").Args({"debug", "\xff\xfe", "caf\xe9", "\xc3\x28\xa0\xa1", "dev3_file=/data/\xff.rec"})
            .File("/data/\xff.rec", MakeRecord(0x851, "FROM_\xe9T\xe9", kSandboxMac))
            .Takes("FROM_\xe9T\xe9", kSandboxMac, "851")
            .Log("do_read_file:read device info  file /data/\xff.rec success"),
        // The scan logs the whole path; the store gets its first 127 characters.
        Row("StorePath128CharactersCutTo127").Args({"debug", "dev3_file=" + kPath127 + "q"})
            .File(kPath127 + "q", MakeRecord(0x851, "NOT_CUT", kSandboxMac))
            .File(kPath127, MakeRecord(0x851, "CUT_TO_127", kSandboxMac))
            .Takes("CUT_TO_127", kSandboxMac, "851")
            .Log("main:dev file1 = " + kPath127 + "q").Log("SetDevFile:set dev info file " + kPath127),

        // --- the stores: "/dev/mtd" anywhere selects the flash, and that is mtdblock3 ---
        Row("DevMtdInsideAPathReadsMtdblock3").Args({"debug", "dev3_file=/data/dev/mtd.bin"})
            .File("/data/dev/mtd.bin", kFile).Log(kFlashRead),
        FromFile("UpperCaseDevMtdIsAFile", {"debug", "dev3_file=/DEV/MTDBLOCK3"})
            .File("/DEV/MTDBLOCK3", kFile).Log("do_read_file:read device info  file /DEV/MTDBLOCK3 success"),
        Row("MissingFile").Args({"debug", "dev3_file=/data/none.bin"}).Takes("", "", "0")
            .Log("do_read_file:open file /data/none.bin failed"),
        // The mac field came as zeros too: it differs from eth0's.
        Row("EmptyFileCountsAsRead").Args({"debug", "dev3_file=/data/empty.bin"}).File("/data/empty.bin", "")
            .Takes("", "", "0").Log("do_read_file:read device info  file /data/empty.bin success"),
        FromFile("File100BytesGivesTheFieldsInThem", {"dev3_file=/data/short.bin"})
            .File("/data/short.bin", kFile.substr(0, 100)),
        // The name's first 14 characters came, the zeros start-up put there follow.
        Row("Partition50BytesKeepsWhatCame").Args({"debug"}).Record(kFlash.substr(0, 50))
            .Takes("FROM_FLASH_012", "", "851").Log("do_read_dev_mtd:rd_size = 50 err")
            .NotOnBoard("an MTD partition is whole erase blocks: the read gets its 280 bytes"),
        Row("ErasedPartition").Record(Str(280, '\xff')).Takes("", "", "ffffffff"),
        RandomRecord("RandomBytes"),
        Row("NoPartition").Record(std::nullopt).Takes("", "", "0").Args({"debug"})
            .Log("do_read_dev_mtd:device /dev/mtdblock3 open failed"),
        // open succeeds, read fails: the file store counts it as read.
        Row("RecordFileIsADirectory").File("/data/recdir/inside", "x").Takes("", "", "0")
            .Args({"debug", "dev3_file=/data/recdir"})
            .Log("do_read_file:read device info  file /data/recdir success"),

        // --- the boot: the whole output in order, the markers, then a second start ---
        Texts("FreshBootInOrder", kName31, kOtherMac).Args({"debug"}).Memcheck()
            .Puts("/firmware/851", kOld).File("/firmware/1234", kOld).Markers("1234\n851\n")
            .Is("/firmware/851", "")
            .Lines({kTag + "main:arg1 = debug, file = (nil)", kTag + "main:arg1 = debug, file = (nil)",
                    kTag + kFlashRead,
                    kTag + "sync_mac_addr:mac not match, dev_info mac = " + kOtherMac +
                        ", eth0 mac = " + kSandboxMac + ", restore it",
                    kTag + "boot:begin write_shmem1",
                    kTag + "write_shmem1:creat_shm ok, shmid = <id>, shared_memory = 0x* !!",
                    kTag + "write_shmem1:shmem_info.run_mode = 0x0 !!",
                    kTag + "write_shmem1:shmem_info.guid.Data1 = 0x0 !!",
                    kTag + "write_shmem1:shmem_info.guid.Data2 = 0x0 !!",
                    kTag + "write_shmem1:shmem_info.guid.Data3 = 0x0 !!",
                    kTag + "write_shmem1:shmem_info.name = " + kName31,
                    kTag + "boot:begin CreateWorkModeID", kTag + "CreateWorkModeID:begin firmware",
                    kTag + "CreateWorkModeID:begin remove",
                    kTag + "CreateWorkModeID:remove /firmware/851", kTag + "CreateWorkModeID:begin touch",
                    kTag + "boot:begin boot", kDdns}),
        // Same segment, written again; the board's own marker goes, the record's is made.
        Row("SecondStartReusesTheSegment").Record(MakeRecord(0xabcdef, "SECOND", kSandboxMac))
            .Takes("SECOND", kSandboxMac, "abcdef").Puts("/tmp/first", MakeRecord(0x851, "FIRST", kSandboxMac))
            .File("/firmware/1234", kOld).Before(kFirstStart).Markers("1234\nabcdef\n")
            .Same("/tmp/shm0.info", "/tmp/shm.info"),

        // --- the file system and the shared segment ---
        // /firmware exists, so no mkdir; touch fails under it.
        Row("FirmwareIsARegularFile").Puts("/firmware", kFirmwareFile).Markers("")
            .Is("/firmware", kFirmwareFile).Shows("/tmp/hw.err", "/firmware/851"),
        Row("SmallerSegment").Before("$HW_RUNNER /sbin/shm_dump --create 16 >/dev/null")
            .Args({"debug"}).Shm("size=16 mode=0604", false).Log("write_shmem1:shmget error !!"),

        // --- the network ---
        Texts("UpperCaseMacIsSetAgain", kName31, "02:AA:BB:CC:DD:0E").Eth0("02:aa:bb:cc:dd:0e"),
        Texts("EmptyMac", kName31, ""),
        Texts("NoEth0", "X", kOtherMac).NoEth0().Memcheck()
            .Out("init_private_ip get mac failed: No such device \n"),
        // Taking a link down drops the routes through it: none to put back.
        Texts("Eth0AlreadyDown", "X", kOtherMac).Before("ip link set eth0 down").Gw(""),
        Texts("DefaultRoutesIn100OtherTables", "X", kOtherMac).Before(OtherTables(100)),
        // Their dump no longer fits the lookup's buffer: the lookup fails.
        Texts("DefaultRoutesIn300OtherTables", "X", kOtherMac).Before(OtherTables(300)).Gw("")
            .Out("Read From Socket Failed.../n").Shows("/tmp/hw.err", "Error in recieved packet"),

        // --- record texts the shell must not read as code: each tries to make /tmp/pwned ---
        Texts("ShellSyntax", "a b*>/tmp/pwned|&;$(id)", "$(touch /tmp/pwned);`id`"),
        Texts("OperatorsWithoutBlanks", "x;true", "x|true"),
        Texts("OneBlank", "two words", "02:00:00:00:00:01 "),
        Texts("QuotesAndNewlines", "a'b\"c';touch /tmp/pwned;'\n", "\"`touch /tmp/pwned`\"'\n"),
        // A tab and UTF-8 are quoted, the plain characters stay bare.
        Texts("TabUtf8AndPlainCharacters", "-n\tcaf\xc3\xa9", "-rf_Az.09:/+=,@"),
        // The longest quoted word there can be: 2 + 31 * 4 characters.
        Texts("ThirtyOneSingleQuotes", Str(31, '\''), Str(31, '\'')),
    };
    return rows;
}

} // namespace hwtest
