// eth0's address against the record's MAC at a start, the default gateway
// read from real routing tables, and the MAC file rewritten by a save.
// Commands are checked as /bin/sh got them (the sandbox's logging shell);
// routes are set up with the host's iproute2 (`hip`) in every mode.
#include "board.h"

#include <gtest/gtest.h>

#include <cctype>
#include <cstdlib>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace hwtest {
namespace {

using Strings = std::vector<std::string>;

const std::string kTag = "[bdsetup] NOTICE! ";
const std::string kHip = "hip() ( PATH=/usr/sbin:/usr/bin:/sbin:/bin; exec ip \"$@\" )\n";
const std::string kSandboxMac = "02:00:00:00:00:01";
const std::string kSandboxGw = "192.168.77.1";
const std::string kUpperMac = "02:AB:CD:EF:01:23";

Strings SetCommands(const std::string &word, const std::string &gw)
{
    return {"ifconfig eth0 down", "ifconfig eth0 hw ether " + word, "ifconfig eth0 up",
            "route add default gw  " + gw};
}

// --- a start: eth0's address against the record ------------------------------------

struct MacRow {
    const char *name;
    std::string mac, start, after; // the record's text; eth0's address before and after
};

const MacRow kMacRows[] = {
    {"equal_lower_case", kSandboxMac, kSandboxMac, kSandboxMac},
    // The texts differ, so every start sets it again.
    {"upper_case_already_on_eth0", "02:AA:BB:CC:DD:0E", "02:aa:bb:cc:dd:0e", "02:aa:bb:cc:dd:0e"},
    {"different", "02:12:34:56:78:9a", kSandboxMac, "02:12:34:56:78:9a"},
    {"empty", "", kSandboxMac, kSandboxMac},
};

class NetworkTest : public BoardTest {};

// The four commands only when the texts differ, the default route back.
TEST_F(NetworkTest, StartSetsTheRecordedMac)
{
    for (const MacRow &r : kMacRows) {
        SCOPED_TRACE(r.name);
        Board b;
        b.PutRecord(MakeRecord(0x851, "IPC", r.mac));
        BootOptions options;
        options.flags = {"--mac", r.start};
        b.Boot({"debug"}, options);
        const bool sets = r.mac != r.start;
        Strings want = sets ? SetCommands(r.mac, kSandboxGw) : Strings{};
        want.insert(want.end(), {"mkdir /firmware", "touch /firmware/851",
                                 "cd /mnt/mtd/app/; /mnt/mtd/app/vrn_ddns_client dev_type=IPC &",
                                 "cd /mnt/mtd/app/; /mnt/mtd/app/gui 1>/dev/console 2>&1 &"});
        EXPECT_EQ(b.ShellLog(), want);
        Strings notices, want_notices;
        for (const std::string &line : Lines(b.Output()))
            if (line.find("sync_mac_addr") != std::string::npos)
                notices.push_back(line);
        if (sets)
            want_notices.push_back(kTag + "sync_mac_addr:mac not match, dev_info mac = " + r.mac +
                                   ", eth0 mac = " + r.start + ", restore it");
        EXPECT_EQ(notices, want_notices);
        EXPECT_EQ(b.Read("/tmp/eth0.mac"), r.after + "\n");
        EXPECT_NE(b.Read("/tmp/routes").find("default via " + kSandboxGw + " "), std::string::npos)
            << b.Read("/tmp/routes");
    }
}

// --- a save: the gateway put back and /config/mac, one table per row ---------------

struct SaveRow {
    const char *name;
    std::string setup; // after the table is reset to the sandbox's
    std::string gw;    // behind "route add default gw  "
    std::string mac = kUpperMac;
    std::string word = kUpperMac; // the MAC as one shell word
    std::string store = "/tmp/store.rec";
};

const SaveRow kSaveRows[] = {
    // A failed save sets nothing and leaves the old file.
    {"failed_save", "", "", kUpperMac, kUpperMac, "/tmp/missing/store.rec"},
    // eth0 already carries the address: all seven commands all the same.
    {"via_gateway", "", kSandboxGw, kSandboxMac, kSandboxMac},
    {"no_default", "hip route del default", ""},
    // Added in the other order: the kernel dumps the higher metric later.
    {"two_metrics", "hip route del default; hip route add default via 192.168.77.3 metric 50\n"
                    "hip route add default via 192.168.77.4 metric 7", "192.168.77.3"},
    {"device_only", "hip route del default; hip route add default dev eth0", "0.0.0.0"},
    {"slash1", "hip route del default; hip route add 0.0.0.0/1 via 192.168.77.5", "192.168.77.5"},
    {"default_after_slash1", "hip route add 0.0.0.0/1 via 192.168.77.5", kSandboxGw},
    {"other_tables", "hip route del default; hip route add default via 192.168.77.9 table 100\n"
                     "hip route add 0.0.0.0/1 via 192.168.77.11 table 200", ""},
    // Dumped after the IPv4 routes; read as IPv4 it would give 254.128.0.0.
    {"ipv6_default", "hip -6 route add ::/0 via fe80::1 dev eth0", kSandboxGw},
    {"hostile_mac", "", kSandboxGw, "x;touch /tmp/pwned 'q'", "'x;touch /tmp/pwned '\\''q'\\'''"},
};

// The tool's output with the shell log interleaved: a command (NUL-ended)
// as "sh: CMD", a line as it is; debug lines other than the MAC's dropped.
Strings Items(const std::string &bytes)
{
    Strings items;
    std::string cur;
    for (char ch : bytes) {
        if (ch != '\0' && ch != '\n') {
            cur += ch;
            continue;
        }
        if (cur.rfind(kTag, 0) != 0 || cur.find("mac_addr:") != std::string::npos)
            items.push_back(ch == '\0' ? "sh: " + cur : cur);
        cur.clear();
    }
    return items;
}

TEST_F(NetworkTest, SaveRestoresGatewayAndMacFile)
{
    board.Put("/config/mac", "stale\n");
    std::string script = kHip + "ln -sf /proc/self/fd/1 /var/log/sh.log\n";
    Strings want;
    for (const SaveRow &r : kSaveRows) {
        board.Put("/tmp/" + std::string(r.name) + ".rec", MakeRecord(0x851, "IPC", r.mac));
        script += "echo '@@ " + std::string(r.name) + "'\n"
                  "hip -4 route flush table all proto boot; hip -6 route flush proto boot\n"
                  "hip route add default via " + kSandboxGw + "\n"
                  "( set -e; " + r.setup + "\n) || echo 'setup failed'\n"
                  "$HW_RUNNER /sbin/record_io save debug " + r.store + " /tmp/" + r.name + ".rec\n"
                  "printf 'mac file: '; cat /config/mac\n";
        want.push_back("@@ " + std::string(r.name));
        if (r.store != "/tmp/store.rec") {
            want.insert(want.end(), {"record_io save: -1", "mac file: stale"});
            continue;
        }
        for (const std::string &cmd : SetCommands(r.word, r.gw))
            want.push_back("sh: " + cmd);
        for (const std::string &cmd :
             Strings{"rm /config/mac", "touch /config/mac", "echo " + r.word + " > /config/mac"})
            want.insert(want.end(), {"sh: " + cmd, kTag + "restore_mac_addr:excute " + cmd});
        want.insert(want.end(), {"record_io save: 0", "mac file: " + r.mac});
    }
    const RunResult run = board.Run(script);
    EXPECT_EQ(Items(run.out), want) << run.err;
    EXPECT_FALSE(board.Exists("/tmp/pwned")) << "a MAC text ran as a command";
}

// --- the lookup against iproute2's listing of random tables -------------------------

// From `ip -4 route show table main` in dump order: the last route whose
// destination address is 0.0.0.0, whatever its prefix length or type, with
// its "via", or "0.0.0.0" without one; "-" when none qualifies.
std::string OracleGateway(const std::string &listing)
{
    std::string gw = "-";
    for (const std::string &line : Lines(listing)) {
        if (line.empty() || std::isspace(static_cast<unsigned char>(line[0])))
            continue; // a nexthop of a multipath route
        std::istringstream in(line);
        Strings w;
        for (std::string word; in >> word;)
            w.push_back(word);
        const std::size_t i = std::isalpha(w[0][0]) && w[0] != "default" ? 1 : 0; // a type
        if (i >= w.size() || (w[i] != "default" && w[i].rfind("0.0.0.0", 0) != 0))
            continue;
        gw = "0.0.0.0";
        for (std::size_t j = i + 1; j + 1 < w.size(); ++j)
            if (w[j] == "via")
                gw = w[j + 1];
    }
    return gw;
}

// A random `ip route add` argument: each capital letter of the template is
// replaced by one of its choices (N: a number below 256), recursively.
std::string RandomRoute(std::mt19937 &rng, const std::string &text = "R")
{
    static const std::map<char, Strings> kFill = {
        {'R', {"10.N.0.0/16HM", "128.0.0.0/1H", "default VM", "default VM", "default dev eth0M",
               "0.0.0.0/LHM", "T default", "T 0.0.0.0/8", "default metric N nexthopV nexthopV",
               "default V table B", "0.0.0.0/1V table B", "::/0 via fe80::1 dev eth0M"}},
        {'H', {" dev eth0", "V", "V"}}, {'V', {" via 192.168.77.N"}}, {'M', {"", " metric N"}},
        {'L', {"1", "2", "8", "16", "31", "32"}}, {'T', {"unreachable", "blackhole", "prohibit"}},
        {'B', {"100", "200", "local"}}};
    auto pick = [&rng](std::size_t n) {
        return std::uniform_int_distribution<std::size_t>(0, n - 1)(rng);
    };
    std::string out;
    for (char c : text) {
        const auto fill = kFill.find(c);
        if (c == 'N')
            out += std::to_string(pick(256));
        else if (fill == kFill.end())
            out += c;
        else
            out += RandomRoute(rng, fill->second[pick(fill->second.size())]);
    }
    return out;
}

TEST_F(NetworkTest, LookupAgreesWithIproute2OnRandomTables)
{
    constexpr int kTables = 50;
    const char *env = std::getenv("HW_ROUTE_SEED");
    const unsigned long seed = env != nullptr && *env != '\0' ? std::strtoul(env, nullptr, 0)
                                                              : 20250424UL;
    std::mt19937 rng(static_cast<std::mt19937::result_type>(seed));
    Strings batches;
    std::string script = kHip;
    for (int t = 0; t < kTables; ++t) {
        std::string batch;
        for (int i = std::uniform_int_distribution<int>(0, 8)(rng); i > 0; --i)
            batch += "route add " + RandomRoute(rng) + "\n";
        batches.push_back(batch);
        // What ip added (proto boot) goes; the kernel's own routes stay.
        const std::string at = "/tmp/table" + std::to_string(t);
        script += "hip -4 route flush table all proto boot 2>/dev/null\n"
                  "hip -6 route flush proto boot 2>/dev/null\n"
                  "hip -force -batch - >/dev/null 2>&1 <<'EOF'\n" + batch + "EOF\n"
                  "hip -4 route show table main >" + at + ".list\n"
                  "$HW_RUNNER /sbin/gw_lookup - >" + at + ".gw\n";
    }
    const RunResult r = board.Run(script);
    ASSERT_EQ(r.status, 0) << r.err;
    std::set<std::string> kinds;
    for (int t = 0; t < kTables; ++t) {
        const std::string at = "/tmp/table" + std::to_string(t);
        const std::string want = OracleGateway(board.Read(at + ".list"));
        EXPECT_EQ(board.Read(at + ".gw"), "gw_lookup: 0 [" + want + "]\n")
            << "seed " << seed << ", added:\n" << batches[t] << board.Read(at + ".list");
        kinds.insert(want == "-" || want == "0.0.0.0" ? want : "via");
    }
    EXPECT_EQ(kinds.size(), 3u) << "the tables must reach every kind of answer";
}

} // namespace
} // namespace hwtest
