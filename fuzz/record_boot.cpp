// Fuzz target: the record's use at start-up. The input is the 280-byte
// record as the store would deliver it (a shorter input leaves the rest
// zero, as a short read does); a stand-in board hands it to start_device,
// which compares its MAC text with eth0's, sets it, publishes the identity
// and starts the programs. Then restore_mac_addr runs with the same MAC
// text, as a save would. Nothing is started: this target defines
// run_command as a recorder (the fuzz build leaves the product's out) and
// write_shmem1 as a check, and the stand-in board leaves no marker.
//
// Every command is checked: the fixed ones character for character, the
// ones that carry record text by splitting them as a shell would, which
// must give the fixed words and the record text as exactly one word.
//
// The MAC and gateway lookups are real: the target runs in a network
// namespace of its own (it makes one when it was started in the host's),
// so it reads nothing of the host's network. scripts/fuzz gives that
// namespace an eth0 and a default route, so the set-up path runs whole.
#include <sched.h>
#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "app/shmem.h"
#include "app/startup.h"
#include "ax630c_qm/device.h"
#include "devinfo/dev_info.h"
#include "base/shell.h"
#include "net/mac.h"
#include "net/route.h"
#include "shell_words.h"

namespace
{

// What happened, in order: "cmd:<text>" for each command, "shm:<name>" for
// the identity block, "mode:<id>" for the work-mode marker.
std::vector<std::string> g_events;
std::string g_eth0_mac; // eth0's address text in this namespace ("" when none)
std::string g_gateway;  // the default gateway text in this namespace
GUID g_guid;            // what the stand-in board says its GUID is

[[noreturn]] void fail(const std::string &what)
{
    std::fprintf(stderr, "record_boot: %s\n", what.c_str());
    for (const std::string &e : g_events)
        std::fprintf(stderr, "  event: %s\n", e.c_str());
    std::abort();
}

class StandInBoard : public CDevice
{
  public:
    explicit StandInBoard(const dev_info &rec) : rec_(rec) {}
    int CheckDevice() override { fail("CheckDevice called during start-up"); }
    int GetGuid(GUID *guid) override
    {
        std::memcpy(guid, &g_guid, sizeof g_guid);
        return 0;
    }
    int SetDevFile(const char *) override { fail("SetDevFile called without a store path"); }
    int ReadDevInfo(dev_info *rec) override
    {
        std::memcpy(rec, &rec_, sizeof rec_);
        return 0;
    }
    int SaveDevInfo(const dev_info *) override { fail("SaveDevInfo called during start-up"); }
    int CreateWorkModeID(std::uint32_t id) override
    {
        g_events.push_back("mode:" + std::to_string(id));
        return 0;
    }
    void Indicator(int) override { fail("Indicator called during start-up"); }
    int Buzzer(std::int32_t) override { fail("Buzzer called during start-up"); }

  private:
    dev_info rec_;
};

// A text field as the rules say to read it, worked out from a copy in a
// heap block of exactly 32 bytes, through which read_text_field must also
// give the same text without reading past it.
std::string field_text(const char (&field)[kTextFieldSize])
{
    std::unique_ptr<char[]> block(new char[kTextFieldSize]);
    std::memcpy(block.get(), field, kTextFieldSize);
    const auto &copy = *reinterpret_cast<const char(*)[kTextFieldSize]>(block.get());
    const void *nul = std::memchr(copy, '\0', kTextFieldSize);
    const std::string want = nul == nullptr ? std::string() : std::string(copy);

    std::unique_ptr<char[]> out(new char[kTextFieldSize]);
    read_text_field(copy, *reinterpret_cast<char(*)[kTextFieldSize]>(out.get()));
    if (std::memchr(out.get(), '\0', kTextFieldSize) == nullptr || want != out.get())
        fail("read_text_field gave another text than the field holds");
    return want;
}

// One expected event: either exactly this text, or a command whose shell
// words must be exactly these.
struct Expect {
    std::string exact;
    std::vector<std::string> words;
    bool by_words = false;
};

Expect exact(const std::string &text)
{
    return Expect{text, {}, false};
}

Expect words(std::vector<std::string> fixed, const std::string &word)
{
    Expect e;
    e.by_words = true;
    e.words = std::move(fixed);
    e.words.push_back(word);
    return e;
}

// The record text as the last of `fixed` words, or after a prefix glued to
// it ("dev_type="). Quoting keeps the empty text empty, so an empty MAC
// text adds no word of its own.
Expect words_with_text(std::vector<std::string> fixed, const std::string &text)
{
    if (text.empty()) {
        Expect e;
        e.by_words = true;
        e.words = std::move(fixed);
        return e;
    }
    return words(std::move(fixed), text);
}

void expect_set_mac(std::vector<Expect> &want, const std::string &mac)
{
    want.push_back(exact("cmd:ifconfig eth0 down"));
    want.push_back(words_with_text({"ifconfig", "eth0", "hw", "ether"}, mac));
    want.push_back(exact("cmd:ifconfig eth0 up"));
    want.push_back(exact("cmd:route add default gw  " + g_gateway));
}

void check_events(const std::vector<Expect> &want)
{
    if (g_events.size() != want.size())
        fail("expected " + std::to_string(want.size()) + " events, got " +
             std::to_string(g_events.size()));
    for (std::size_t i = 0; i < want.size(); ++i) {
        const std::string &got = g_events[i];
        if (!want[i].by_words) {
            if (got != want[i].exact)
                fail("event " + std::to_string(i) + " differs: want " + want[i].exact);
            continue;
        }
        if (got.compare(0, 4, "cmd:") != 0)
            fail("event " + std::to_string(i) + " is no command");
        const ShellSplit split = split_shell_words(got.substr(4));
        if (!split.literal)
            fail("command " + std::to_string(i) + " is not literal: " + split.why);
        if (split.tokens != want[i].words)
            fail("command " + std::to_string(i) + " does not split into the expected words");
    }
}

bool in_init_net_namespace()
{
    struct stat own {
    };
    struct stat init {
    };
    if (stat("/proc/self/ns/net", &own) != 0 || stat("/proc/1/ns/net", &init) != 0)
        return true; // cannot tell: take the safe side
    return own.st_ino == init.st_ino && own.st_dev == init.st_dev;
}

} // namespace

// The fuzz build's shell: records the command instead of running it.
int run_command(const char *command)
{
    g_events.push_back(std::string("cmd:") + command);
    return 0;
}

// The fuzz build's identity block writer: checks what boot hands over.
int write_shmem1(std::uint32_t run_mode, const char *name, const GUID *guid)
{
    if (run_mode != 0)
        fail("write_shmem1 with a run mode other than 0");
    if (std::memcmp(guid, &g_guid, sizeof g_guid) != 0)
        fail("write_shmem1 with another GUID than the board's");
    g_events.push_back(std::string("shm:") + name);
    return 0;
}

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    if (in_init_net_namespace() && unshare(CLONE_NEWNET) != 0) {
        std::perror("record_boot: a private network namespace is needed (run as root)");
        std::exit(1);
    }
    // The diagnostics of the MAC and route code go to standard output.
    if (std::freopen("/dev/null", "w", stdout) == nullptr)
        return 0;

    char mac[kTextFieldSize] = {};
    get_eth_mac_addr(mac, sizeof mac);
    g_eth0_mac = mac;
    char gw[kTextFieldSize] = {};
    get_default_gw(gw);
    g_gateway = gw;
    for (std::size_t i = 0; i < sizeof g_guid; ++i)
        reinterpret_cast<unsigned char *>(&g_guid)[i] = static_cast<unsigned char>(0x40 + i);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    dev_info rec;
    std::memset(&rec, 0, sizeof rec);
    std::memcpy(&rec, data, size < sizeof rec ? size : sizeof rec);
    const std::string name = field_text(rec.board_name);
    const std::string mac = field_text(rec.mac);
    field_text(rec.p2p_id);

    std::vector<Expect> want;
    if (mac != g_eth0_mac)
        expect_set_mac(want, mac);
    want.push_back(exact("shm:" + name));
    want.push_back(exact("mode:" + std::to_string(rec.board_id)));
    want.push_back(
        words({"cd", "/mnt/mtd/app/", ";", "/mnt/mtd/app/vrn_ddns_client"}, "dev_type=" + name));
    want.back().words.push_back("&");
    want.push_back(exact("cmd:cd /mnt/mtd/app/; /mnt/mtd/app/gui 1>/dev/console 2>&1 &"));

    g_events.clear();
    StandInBoard board(rec);
    if (start_device(&board) != 0)
        fail("start_device returned other than 0");
    check_events(want);

    // A save ends in restore_mac_addr with the record's MAC text.
    want.clear();
    expect_set_mac(want, mac);
    want.push_back(exact("cmd:rm /config/mac"));
    want.push_back(exact("cmd:touch /config/mac"));
    Expect echo = words_with_text({"echo"}, mac);
    echo.words.push_back(">");
    echo.words.push_back("/config/mac");
    want.push_back(echo);
    g_events.clear();
    restore_mac_addr(mac.c_str());
    check_events(want);
    return 0;
}
