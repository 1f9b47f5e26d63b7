// The image on emulated ARM boards (scripts/board): each row boots it and
// checks what the board shows on its console (hw_start's output, the
// started programs' arguments, the shared block through devinfo shm,
// /firmware, eth0 and its default route, the store's checksum before and
// after the boot) and, on the NOR board, what its flash image holds after
// the run. The rows run in order: the second NOR boot uses the first's flash.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <ostream>
#include <regex>
#include <string>
#include <vector>

namespace
{

const std::string kOut = HW_BOARD_OUT;
const std::string kNor = kOut + "/nor.img";
constexpr std::size_t kFlashSize = 2 << 20, kRecordAt = 0x1f0000;    // mtd3 of the NOR chip
constexpr std::size_t kCopyAt = kRecordAt + 0x1000, kBlock = 0x1000; // its copy's erase block

struct Result {
    int status;
    std::string out;
};

Result sh(const std::string &cmd)
{
    Result r{-1, {}};
    FILE *p = popen((cmd + " 2>&1").c_str(), "r");
    char buf[4096];
    for (std::size_t n; p && (n = fread(buf, 1, sizeof buf, p)) > 0;)
        r.out.append(buf, n);
    if (p)
        r.status = pclose(p);
    return r;
}

std::string slurp(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

struct Row {
    std::string name, options;
    std::vector<std::string> expect; // patterns the console shows
    const char *nor;                 // nullptr: no NOR flash; "": unchanged by the run;
                                     // else `devinfo create` arguments of the record it then holds
    std::string host = {};           // run on the host before the boot
};

const char *const kEveryBoot[] = {"==== board report\n--- hw_start\nrunning\n",
                                  "gui: cwd=/mnt/mtd/app argc=0\n",
                                  "magic=0x95279528\n",
                                  "flag=0x78cfde02\n",
                                  "inet 10.0.2.15/24\n",
                                  "default via 10.0.2.2 dev eth0",
                                  "\nmtd3: 00010000 ",
                                  "hw_start to gui [0-9]+ ms\n",
                                  "==== board done\n"};

const std::string kSet = "/mnt/mtd/app/devinfo set board_name=IPC_X mac=02:12:34:56:78:9b";
const std::string kRunning =
    "$(pidof hw_start | wc -w) $(pidof vrn_ddns_client | wc -w) $(pidof gui | wc -w)";
const std::string kRestart =
    "s=/etc/init.d/S50hw_start; $s start; sleep 1; echo \"start: " + kRunning +
    "\"; $s restart; sleep 1; echo \"restart: " + kRunning + "\"";
// A factory's partition image changed by devinfo set on the host, written into mtd3.
const std::string kImage = kOut + "/part.img";
const std::string kSetImage =
    HW_DEVINFO_BIN " create " + kImage + " --board-id 0x851 --board-name IPC_AX620Q --mac "
    "02:12:34:56:78:9a --partition-size 0x10000 --erase-size 0x1000 && " HW_DEVINFO_BIN
    " set --no-apply " + kImage + " board_name=IPC_Y mac=02:12:34:56:78:9c && dd if=" + kImage +
    " of=" + kNor + " bs=4096 seek=496 conv=notrunc";
// The copy's place, erase block 1 of mtd3 (1021 of the chip), is bad: a
// save, then a record torn through mtdblock, which recover puts back.
const std::string kBadBlock =
    "d=/mnt/mtd/app/devinfo; $d set --no-apply board_name=IPC_X; "
    "dd if=/dev/zero of=/dev/mtdblock3 bs=280 count=1 conv=fsync 2>/dev/null; "
    "$d recover; echo \"recover $?: $($d get board_name)\"; echo \"bad block: $(dd if=/dev/mtd3 "
    "bs=16k skip=1 count=1 2>/dev/null | tr -d \"\\\\377\" | wc -c) bytes programmed\"";

const Row kRows[] = {
    {"virt, sample record, then the start script's restart",
     "--args debug --run '" + kRestart + "'",
     {"argc = 2\nargv1 = debug\n",
      "vrn_ddns_client: cwd=/mnt/mtd/app argc=1 \\[dev_type=IPC_AX620Q\\]\n", "name=IPC_AX620Q\n",
      "--- /firmware\n851\n", "driver virtio_net\nmac 02:12:34:56:78:9a\n",
      "hw_start: hw_start is running \\(pid [0-9]+\\): nothing started\n", "start: 1 1 1\n",
      "Stopping hw_start\nStarting hw_start\n", "restart: 1 1 1\n"},
     nullptr},
    {"virt, a bad block where the copy goes",
     "--bad-blocks 1021 --run '" + kBadBlock + "'",
     {"name=IPC_AX620Q\n", "\nrecover 0: IPC_X\n", "\nbad block: 0 bytes programmed\n"},
     nullptr},
    {"virt, erased partition",
     "--erased",
     {"argc = 1\n", "argc=1 \\[dev_type=\\]\n", "name=\n", "--- /firmware\nffffffff\n",
      "mac 52:54:00:12:34:56\n"},
     nullptr},
    {"sabrelite, sample record, then devinfo set",
     "--board sabrelite --flash " + kNor + " --run '" + kSet + "'",
     {"argc=1 \\[dev_type=IPC_AX620Q\\]\n", "name=IPC_AX620Q\n", "--- /firmware\n851\n",
      "driver fec\nmac 02:12:34:56:78:9a\n"},
     "--board-id 0x851 --board-name IPC_X --mac 02:12:34:56:78:9b --p2p-id P2P-0001"},
    {"sabrelite, second boot of that flash",
     "--board sabrelite --flash " + kNor,
     {"argc=1 \\[dev_type=IPC_X\\]\n", "name=IPC_X\n", "driver fec\nmac 02:12:34:56:78:9b\n"},
     ""},
    {"sabrelite, a partition image after devinfo set",
     "--board sabrelite --flash " + kNor,
     {"argc=1 \\[dev_type=IPC_Y\\]\n", "name=IPC_Y\n", "driver fec\nmac 02:12:34:56:78:9c\n"},
     "",
     kSetImage},
};

TEST(BoardImage, BootsOnEmulatedBoards)
{
    std::remove(kNor.c_str());
    for (const Row &row : kRows) {
        SCOPED_TRACE(row.name);
        ASSERT_TRUE(row.host.empty() || sh(row.host).status == 0) << row.host;
        const std::string before = slurp(kNor);
        const Result r = sh(HW_SOURCE_DIR "/scripts/board --out " + kOut + " " + row.options);
        ASSERT_EQ(r.status, 0) << r.out;
        std::vector<std::string> expect(std::begin(kEveryBoot), std::end(kEveryBoot));
        expect.insert(expect.end(), row.expect.begin(), row.expect.end());
        for (const std::string &e : expect)
            EXPECT_TRUE(std::regex_search(r.out, std::regex(e))) << "no '" << e << "' in:\n"
                                                                 << r.out;
        std::smatch m;
        ASSERT_TRUE(
            std::regex_search(r.out, m, std::regex("\nbefore (\\w+)  -\nafter (\\w+)  -\n")));
        EXPECT_EQ(m[1], m[2]) << "the boot changed the store";
        if (row.nor == nullptr)
            continue;
        std::string expected = before;
        if (*row.nor != '\0') {
            const std::string rec = kOut + "/expected-record.bin";
            ASSERT_EQ(sh(HW_DEVINFO_BIN " create " + rec + " " + row.nor).status, 0);
            expected.assign(kFlashSize, '\xff');
            expected.replace(kRecordAt, 280, slurp(rec));
            // The copy's block is left to scripts/powercut, which cuts the
            // power at every step of its use.
            expected.replace(kCopyAt, kBlock, slurp(kNor), kCopyAt, kBlock);
        }
        EXPECT_TRUE(slurp(kNor) == expected) << "flash image not as expected after the run";
    }
}

// Power cuts on the NOR board (scripts/powercut --quick), one row per save
// and start: every start after a cut publishes the old or the new record.
// The cut save is the second of two in a row, so a save that skipped the
// copy is seen: a start then publishes the record from before both.
struct Sweep {
    const char *name, *options;
    const char *summary; // the sweep's last line
};

const Sweep kSweeps[] = {
    // devinfo set, then the installed start script: devinfo recover, then
    // hw_start; recovery is cut too, and the flash holds the record whole.
    {"SetThenRecoverAndStart", "", "\n4 cuts, 0 records lost\n"},
    // The board object's SaveDevInfo, then a start script that runs
    // hw_start alone: its name and MAC are one record's, and it writes
    // nothing to the flash.
    {"SaveDevInfoThenHwStartAlone", "--save board --start alone",
     "\n[1-9][0-9]* cuts, 0 records lost\n"},
};

void PrintTo(const Sweep &sweep, std::ostream *os)
{
    *os << sweep.name;
}

class PowerCut : public testing::TestWithParam<Sweep>
{
};

TEST_P(PowerCut, LosesNoRecord)
{
    const Result r = sh(HW_SOURCE_DIR "/scripts/powercut --quick " +
                        std::string(GetParam().options) + " --out " + kOut);
    EXPECT_EQ(r.status, 0) << r.out;
    EXPECT_TRUE(std::regex_search(r.out, std::regex(GetParam().summary))) << r.out;
}

INSTANTIATE_TEST_SUITE_P(Sweeps, PowerCut, testing::ValuesIn(kSweeps),
                         [](const testing::TestParamInfo<Sweep> &info) { return info.param.name; });

// What cmake --install puts into an image root for the board's init and
// programs: the systemd unit verifies against that root, the sample
// settings set nothing and a second install keeps the board's own, and a C
// program finds the shared block's header through the pkg-config file.
TEST(BoardImage, InstallsUnitAndHeader)
{
    const std::string d = kOut + "/install";
    ASSERT_EQ(
        sh("rm -rf " + d + " && DESTDIR=" + d + " cmake --install " HW_BUILD_DIR " --prefix /")
            .status,
        0);
    Result r = sh("systemd-analyze verify --recursive-errors=no --root=" + d + " " + d +
                  "/lib/systemd/system/hw_start.service");
    EXPECT_EQ(r.status, 0) << r.out;
    const std::string settings = d + "/etc/default/hw_start";
    EXPECT_EQ(sh("grep -v -e '^#' -e '^$' " + settings).out, "");
    sh("echo HW_START_ARGS=debug >" + settings + " && DESTDIR=" + d +
       " cmake --install " HW_BUILD_DIR);
    EXPECT_EQ(slurp(settings), "HW_START_ARGS=debug\n");
    r = sh("printf '#include <hw_start/shmem_info.h>\\nint main(void) { struct shmem_info i; "
           "return shmem_info_read(&i); }\\n' | cc -x c -o /dev/null - $(PKG_CONFIG_SYSROOT_DIR=" +
           d + " PKG_CONFIG_LIBDIR=" + d + "/usr/share/pkgconfig pkg-config --cflags hw_start)");
    EXPECT_EQ(r.status, 0) << r.out;
}

} // namespace
