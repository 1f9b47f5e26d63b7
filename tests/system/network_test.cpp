// System tests of the network set-up on the real binary in the board
// sandbox: eth0's address against the record's MAC text, the default
// gateway read over rtnetlink from a real routing table and put back with
// `route`, and the MAC file rewritten after a save. Commands are checked as
// /bin/sh received them (the sandbox's logging shell); the interface and the
// routes as the kernel shows them afterwards.
//
// Routes are set up with the host's iproute2 (`hip`), whatever the board's
// tools are, so the listings have one format in every mode.
#include "board.h"

#include <gtest/gtest.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ostream>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace hwtest {
namespace {

const std::string kTag = "[bdsetup] NOTICE! ";
const std::string kHip = "hip() ( PATH=/usr/sbin:/usr/bin:/sbin:/bin; exec ip \"$@\" )\n";
const std::string kSandboxMac = "02:00:00:00:00:01";
const std::string kSandboxGw = "192.168.77.1";
const std::string kOtherMac = "02:12:34:56:78:9a";
const std::string kReadFailed = "Read From Socket Failed.../n";

using Strings = std::vector<std::string>;

Strings Cat(Strings a, const Strings &b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// What a boot without /firmware runs after the network set-up.
const Strings kBootCommands = {
    "mkdir /firmware", "touch /firmware/851",
    "cd /mnt/mtd/app/; /mnt/mtd/app/vrn_ddns_client dev_type=IPC &",
    "cd /mnt/mtd/app/; /mnt/mtd/app/gui 1>/dev/console 2>&1 &"};

Strings SetCommands(const std::string &mac_word, const std::string &gw)
{
    return {"ifconfig eth0 down", "ifconfig eth0 hw ether " + mac_word, "ifconfig eth0 up",
            "route add default gw  " + gw};
}

int CountPrefixed(const Strings &lines, const std::string &prefix)
{
    int n = 0;
    for (const std::string &line : lines)
        n += line.rfind(prefix, 0) == 0 ? 1 : 0;
    return n;
}

bool HasDefaultVia(const std::string &routes, const std::string &gw)
{
    return CountPrefixed(Lines(routes), "default via " + gw + " ") > 0;
}

// The gateway a lookup must find, from `ip -4 route show table main` in the
// kernel's dump order: the last route whose destination address is 0.0.0.0,
// whatever its prefix length or type, with its "via", or "0.0.0.0" when it
// has none; `none` when no route qualifies.
std::string OracleGateway(const std::string &listing, const std::string &none)
{
    static const std::set<std::string> kTypes = {"unreachable", "blackhole", "prohibit",
                                                 "throw",       "local",     "broadcast",
                                                 "anycast",     "multicast", "nat"};
    std::string gw = none;
    for (const std::string &line : Lines(listing)) {
        // Lines that begin with blanks are the nexthops of a multipath route.
        if (line.empty() || std::isspace(static_cast<unsigned char>(line[0])))
            continue;
        std::istringstream in(line);
        Strings w;
        for (std::string word; in >> word;)
            w.push_back(word);
        std::size_t i = kTypes.count(w[0]) != 0 ? 1 : 0;
        if (i >= w.size())
            continue;
        const std::string dst = w[i].substr(0, w[i].find('/'));
        if (dst != "default" && dst != "0.0.0.0")
            continue;
        gw = "0.0.0.0";
        for (std::size_t j = i + 1; j + 1 < w.size(); ++j) {
            if (w[j] == "via") {
                gw = w[j + 1];
                break;
            }
        }
    }
    return gw;
}

// --- start-up: eth0's address against the record ------------------------------

struct MacCase {
    const char *name;
    std::string mac;  // the record's text
    Strings flags;    // sandbox flags
    bool debug;
    bool sets;        // the four commands run
    std::string word; // the address as it must appear in "hw ether"
    std::string eth0; // eth0's address afterwards; "" when there is no eth0
};

void PrintTo(const MacCase &c, std::ostream *os) { *os << c.name; }

const Strings kUpperOnEth0 = {"--mac", "02:aa:bb:cc:dd:0e"}; // eth0's address at the start
const Strings kNoEth0 = {"--no-eth0"};

class NetworkMacTest : public BoardTest, public ::testing::WithParamInterface<MacCase> {};

TEST_P(NetworkMacTest, Boot)
{
    const MacCase &c = GetParam();
    board.PutRecord(MakeRecord(0x851, "IPC", c.mac));
    BootOptions options;
    options.flags = c.flags;
    board.Boot(c.debug ? Strings{"debug"} : Strings{}, options);
    ASSERT_TRUE(board.Alive()) << board.Output() << board.Err();

    const bool has_eth0 = !c.eth0.empty();
    const Strings net = c.sets ? SetCommands(c.word, has_eth0 ? kSandboxGw : "") : Strings{};
    EXPECT_EQ(board.ShellLog(), Cat(net, kBootCommands));
    if (has_eth0) {
        EXPECT_EQ(board.Read("/tmp/eth0.mac"), c.eth0 + "\n");
        EXPECT_TRUE(HasDefaultVia(board.Read("/tmp/routes"), kSandboxGw))
            << board.Read("/tmp/routes");
    }
    EXPECT_FALSE(board.Exists("/tmp/pwned")) << "a MAC text ran as a command";

    const Strings out = Lines(board.Output());
    const std::string read_failed = "init_private_ip get mac failed: ";
    EXPECT_EQ(CountPrefixed(out, read_failed), has_eth0 ? 0 : 1) << board.Output();
    if (!has_eth0) {
        EXPECT_EQ(CountPrefixed(out, read_failed + std::strerror(ENODEV) + " "), 1);
    }

    const std::string notice = kTag + "sync_mac_addr:";
    if (!c.debug) {
        EXPECT_EQ(CountPrefixed(out, kTag), 0) << board.Output();
    } else if (!c.sets) {
        EXPECT_EQ(CountPrefixed(out, notice), 0) << board.Output();
    } else {
        ASSERT_EQ(CountPrefixed(out, notice), 1) << board.Output();
        for (const std::string &line : out) {
            if (line.rfind(notice, 0) != 0)
                continue;
            // The recorded text first, the current one behind it.
            const std::string current =
                c.flags == kUpperOnEth0 ? c.flags[1] : has_eth0 ? kSandboxMac : "";
            const std::size_t at = line.find(c.mac, notice.size());
            ASSERT_NE(at, std::string::npos) << line;
            EXPECT_NE(line.find(current, at + c.mac.size()), std::string::npos) << line;
        }
    }
}

const MacCase kMacCases[] = {
    {"equal_lower_case_runs_nothing", kSandboxMac, {}, true, false, "", kSandboxMac},
    // eth0 already carries it: the texts still differ, so every start sets it.
    {"upper_case_set_again", "02:AA:BB:CC:DD:0E", kUpperOnEth0, true, true, "02:AA:BB:CC:DD:0E",
     "02:aa:bb:cc:dd:0e"},
    {"upper_case_new", "02:AB:CD:EF:01:23", {}, false, true, "02:AB:CD:EF:01:23",
     "02:ab:cd:ef:01:23"},
    {"different", kOtherMac, {}, true, true, kOtherMac, kOtherMac},
    {"different_quiet", "02:12:34:56:78:9b", {}, false, true, "02:12:34:56:78:9b",
     "02:12:34:56:78:9b"},
    {"empty_keeps_old_address", "", {}, true, true, "", kSandboxMac},
    {"no_eth0_empty_runs_nothing", "", kNoEth0, true, false, "", ""},
    {"no_eth0_sets_recorded", kOtherMac, kNoEth0, true, true, kOtherMac, ""},
    {"semicolon", "x;touch /tmp/pwned", {}, true, true, "'x;touch /tmp/pwned'", kSandboxMac},
    {"substitution", "$(touch /tmp/pwned)", {}, false, true, "'$(touch /tmp/pwned)'",
     kSandboxMac},
    {"backquotes", "`touch /tmp/pwned`", {}, false, true, "'`touch /tmp/pwned`'", kSandboxMac},
    {"quotes", "a'b\"c d|touch /tmp/pwned", {}, true, true, "'a'\\''b\"c d|touch /tmp/pwned'",
     kSandboxMac},
};

INSTANTIATE_TEST_SUITE_P(Network, NetworkMacTest, ::testing::ValuesIn(kMacCases),
                         [](const ::testing::TestParamInfo<MacCase> &info) {
                             return std::string(info.param.name);
                         });

// --- start-up: the gateway put back -------------------------------------------

struct GwCase {
    const char *name;
    std::string routes; // shell run before the start, with `hip`
    std::string gw;     // behind "route add default gw  "
    bool fails;         // the lookup fails: the dump does not fit its buffer
};

void PrintTo(const GwCase &c, std::ostream *os) { *os << c.name; }

class NetworkGatewayTest : public BoardTest, public ::testing::WithParamInterface<GwCase> {};

TEST_P(NetworkGatewayTest, Boot)
{
    const GwCase &c = GetParam();
    board.PutRecord(MakeRecord(0x851, "IPC", kOtherMac));
    BootOptions options;
    options.before = kHip + c.routes + "\nhip -4 route show table main >/tmp/routes.before\n";
    board.Boot({}, options);
    ASSERT_TRUE(board.Alive()) << board.Output() << board.Err();

    const std::string before = board.Read("/tmp/routes.before");
    if (!c.fails) {
        ASSERT_EQ(OracleGateway(before, ""), c.gw) << "the table was not set up:\n" << before;
    }
    EXPECT_EQ(board.ShellLog(), Cat(SetCommands(kOtherMac, c.gw), kBootCommands)) << before;
    if (!c.gw.empty() && c.gw != "0.0.0.0") {
        EXPECT_TRUE(HasDefaultVia(board.Read("/tmp/routes"), c.gw)) << board.Read("/tmp/routes");
    }

    const std::string out = board.Output();
    const std::size_t at = out.find(kReadFailed);
    if (c.fails) {
        ASSERT_NE(at, std::string::npos) << out;
        EXPECT_NE(out[at + kReadFailed.size()], '\n') << "no line end of its own";
        EXPECT_NE(board.Err().find("Error in recieved packet"), std::string::npos)
            << board.Err();
    } else {
        EXPECT_EQ(at, std::string::npos) << out;
        EXPECT_EQ(board.Err().find("recieved"), std::string::npos) << board.Err();
    }
}

// Host routes on eth0, each about 52 bytes of dump: far more than 8192.
const std::string kManyRoutes = "i=0; while [ $i -lt 300 ]; do"
                                " echo \"route add 10.1.$((i / 200)).$((i % 200)) dev eth0\";"
                                " i=$((i + 1)); done | hip -batch -";

const GwCase kGwCases[] = {
    {"via_gateway", "", kSandboxGw, false},
    {"no_default", "hip route del default", "", false},
    // Added in the other order: the kernel lists the higher metric later.
    {"higher_metric_dumped_later",
     "hip route del default\n"
     "hip route add default via 192.168.77.3 metric 50\n"
     "hip route add default via 192.168.77.4 metric 7",
     "192.168.77.3", false},
    {"device_only", "hip route del default\nhip route add default dev eth0", "0.0.0.0", false},
    {"slash1", "hip route del default\nhip route add 0.0.0.0/1 via 192.168.77.5", "192.168.77.5",
     false},
    {"default_dumped_after_slash1", "hip route add 0.0.0.0/1 via 192.168.77.5", kSandboxGw,
     false},
    {"other_tables_ignored",
     "hip route del default\n"
     "hip route add default via 192.168.77.9 table 100\n"
     "hip route add default via 192.168.77.10 table 1000\n"
     "hip route add 0.0.0.0/1 via 192.168.77.11 table 200",
     "", false},
    // Dumped after the IPv4 routes; its gateway's first bytes read as
    // IPv4 would give 254.128.0.0.
    {"ipv6_default_ignored", "hip -6 route add ::/0 via fe80::1 dev eth0", kSandboxGw, false},
    {"dump_over_8192_bytes", kManyRoutes, "", true},
};

INSTANTIATE_TEST_SUITE_P(Network, NetworkGatewayTest, ::testing::ValuesIn(kGwCases),
                         [](const ::testing::TestParamInfo<GwCase> &info) {
                             return std::string(info.param.name);
                         });

// --- the lookup against iproute2 on random tables --------------------------------

class NetworkRandomTablesTest : public BoardTest {};

std::string RandomRoute(std::mt19937 &rng)
{
    auto pick = [&rng](int n) { return std::uniform_int_distribution<int>(0, n - 1)(rng); };
    auto num = [&pick](int n) { return std::to_string(pick(n)); };
    auto via = [&] { return " via 192.168.77." + std::to_string(3 + pick(250)); };
    auto hop = [&] { return pick(3) == 0 ? std::string(" dev eth0") : via(); };
    auto metric = [&] { return pick(2) == 0 ? std::string() : " metric " + num(1000); };
    static const char *const kZeroLens[] = {"1", "2", "8", "16", "31", "32"};
    static const char *const kTypes[] = {"unreachable", "blackhole", "prohibit"};
    static const char *const kTables[] = {"100", "200", "1000", "local"};
    switch (pick(14)) {
    case 0:
    case 1:
        return "10." + num(256) + "." + num(256) + ".0/24" + hop() + metric();
    case 2:
        return "172.16." + num(256) + "." + num(256) + hop() + metric();
    case 3:
    case 4:
    case 5:
        return "default" + via() + metric();
    case 6:
        return "default dev eth0" + metric();
    case 7:
        return std::string("0.0.0.0/") + kZeroLens[pick(6)] + hop() + metric();
    case 8:
        return (pick(2) == 0 ? "128.0.0.0/1" : "64.0.0.0/2") + hop();
    case 9:
        return std::string(kTypes[pick(3)]) + (pick(2) == 0 ? " default" : " 0.0.0.0/8") +
               metric();
    case 10:
        return "default metric " + num(1000) + " nexthop" + via() + " nexthop" + via();
    case 11:
        return (pick(2) == 0 ? "default" : "0.0.0.0/1") + via() + " table " + kTables[pick(4)];
    case 12:
        return "::/0 via fe80::" + std::to_string(1 + pick(9)) + " dev eth0" + metric();
    default:
        return "2001:db8:" + num(100) + "::/48 via fe80::1 dev eth0";
    }
}

TEST_F(NetworkRandomTablesTest, LookupAgreesWithIproute2)
{
    constexpr int kTables = 50;
    const char *env = std::getenv("HW_ROUTE_SEED");
    const unsigned long seed =
        env != nullptr && *env != '\0' ? std::strtoul(env, nullptr, 0) : 20250424UL;
    std::printf("random route tables from seed %lu (HW_ROUTE_SEED)\n", seed);
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 rng(static_cast<std::mt19937::result_type>(seed));

    std::vector<std::string> batches;
    std::string script = kHip;
    for (int t = 0; t < kTables; ++t) {
        std::string batch;
        const int n = std::uniform_int_distribution<int>(0, 8)(rng);
        for (int i = 0; i < n; ++i)
            batch += "route add " + RandomRoute(rng) + "\n";
        batches.push_back(batch);
        // What ip added (proto boot) goes, the kernel's own routes stay.
        script += "hip -4 route flush table all proto boot 2>/dev/null\n"
                  "hip -6 route flush proto boot 2>/dev/null\n"
                  "hip -force -batch - >/dev/null 2>&1 <<'EOF'\n" +
                  batch +
                  "EOF\n"
                  "echo '@@ table'\n"
                  "hip -4 route show table main\n"
                  "echo '@@ lookup'\n"
                  "$HW_RUNNER /sbin/gw_lookup -\n";
    }
    RunResult r = board.Run(script);
    ASSERT_EQ(r.status, 0) << r.err;

    // Sections: "@@ table", the listing, "@@ lookup", the tool's line.
    const Strings lines = Lines(r.out);
    std::set<std::string> outcomes;
    int t = 0;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        if (lines[i] != "@@ table")
            continue;
        std::string listing;
        std::size_t j = i + 1;
        for (; j < lines.size() && lines[j] != "@@ lookup"; ++j)
            listing += lines[j] + "\n";
        ASSERT_LT(j + 1, lines.size()) << r.out;
        ASSERT_LT(t, kTables);
        const std::string want = OracleGateway(listing, "-");
        EXPECT_EQ(lines[j + 1], "gw_lookup: 0 [" + want + "]")
            << "table " << t << ", added:\n" << batches[t] << "listed:\n" << listing;
        outcomes.insert(want == "-" || want == "0.0.0.0" ? want : "via");
        i = j + 1;
        ++t;
    }
    EXPECT_EQ(t, kTables) << r.out << r.err;
    // The tables must reach every kind of answer, or the comparison says little.
    EXPECT_EQ(outcomes.size(), 3u);
}

// --- saving a record: the address set without comparing, and /config/mac ----------

struct SaveCase {
    const char *name;
    std::string mac;
    bool debug;
    std::string word;  // the address as it must appear in the commands
    std::string store; // where the record is saved
    std::string eth0;  // eth0's address afterwards
};

void PrintTo(const SaveCase &c, std::ostream *os) { *os << c.name; }

class NetworkSaveTest : public BoardTest, public ::testing::WithParamInterface<SaveCase> {};

// Splits what the tool and the logging shell wrote into one file, in the
// order they wrote it: a shell command (ending in NUL) as "sh: CMD", a line
// of output as it is.
Strings Items(const std::string &bytes)
{
    Strings items;
    std::string cur;
    for (char ch : bytes) {
        if (ch == '\0' || ch == '\n') {
            items.push_back(ch == '\0' ? "sh: " + cur : cur);
            cur.clear();
        } else {
            cur += ch;
        }
    }
    if (!cur.empty())
        items.push_back(cur);
    return items;
}

TEST_P(NetworkSaveTest, RewritesMacFile)
{
    const SaveCase &c = GetParam();
    const std::string stale = "stale text, longer than any address\nsecond line\n";
    board.Put("/config/mac", stale);
    const std::string rec = MakeRecord(0x851, "IPC", c.mac);
    board.Put("/tmp/new.rec", rec);
    // The shell logs each command to the tool's own output, so the two
    // interleave exactly as they happened.
    RunResult r = board.Run(kHip + "ln -sf /proc/self/fd/1 /var/log/sh.log\n"
                                   "$HW_RUNNER /sbin/save_record " +
                            (c.debug ? "debug " : "") + c.store +
                            " /tmp/new.rec >>/tmp/save.out 2>/tmp/save.err\n"
                            "rm -f /var/log/sh.log\n"
                            "cat /sys/class/net/eth0/address >/tmp/eth0.mac\n"
                            "hip -4 route show table main >/tmp/routes\n");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(board.Read("/tmp/eth0.mac"), c.eth0 + "\n");
    EXPECT_FALSE(board.Exists("/tmp/pwned")) << "a MAC text ran as a command";

    const Strings items = Items(board.Read("/tmp/save.out"));
    ASSERT_FALSE(items.empty());
    Strings seen; // commands and this operation's debug lines
    for (const std::string &item : items) {
        if (item.rfind("sh: ", 0) == 0 || item.find("mac_addr:") != std::string::npos)
            seen.push_back(item);
    }
    if (c.store != "/tmp/store.rec") {
        EXPECT_EQ(items.back(), "save_record: -1");
        EXPECT_EQ(seen, Strings{}) << "a failed save sets nothing";
        EXPECT_EQ(board.Read("/config/mac"), stale);
        return;
    }
    EXPECT_EQ(items.back(), "save_record: 0") << board.Read("/tmp/save.err");
    EXPECT_EQ(board.Read("/tmp/store.rec"), rec);
    EXPECT_EQ(board.Read("/config/mac"), c.mac + "\n");
    EXPECT_TRUE(HasDefaultVia(board.Read("/tmp/routes"), kSandboxGw)) << board.Read("/tmp/routes");

    const std::string excute = kTag + "restore_mac_addr:excute ";
    const std::string rm = "rm /config/mac";
    const std::string touch = "touch /config/mac";
    const std::string echo = "echo " + c.word + " > /config/mac";
    Strings want;
    for (const std::string &cmd : SetCommands(c.word, kSandboxGw))
        want.push_back("sh: " + cmd);
    for (const std::string &cmd : {rm, touch, echo}) {
        want.push_back("sh: " + cmd);
        if (c.debug)
            want.push_back(excute + cmd);
    }
    EXPECT_EQ(seen, want);
    if (!c.debug) {
        EXPECT_EQ(CountPrefixed(items, kTag), 0) << board.Read("/tmp/save.out");
    }
}

const SaveCase kSaveCases[] = {
    // eth0 already carries it: all seven commands all the same.
    {"same_address", kSandboxMac, true, kSandboxMac, "/tmp/store.rec", kSandboxMac},
    {"new_address_quiet", kOtherMac, false, kOtherMac, "/tmp/store.rec", kOtherMac},
    {"hostile_text", "x;touch /tmp/pwned 'q' `id`", true, "'x;touch /tmp/pwned '\\''q'\\'' `id`'",
     "/tmp/store.rec", kSandboxMac},
    {"failed_save_sets_nothing", kOtherMac, true, kOtherMac, "/tmp/missing/store.rec",
     kSandboxMac},
};

INSTANTIATE_TEST_SUITE_P(Network, NetworkSaveTest, ::testing::ValuesIn(kSaveCases),
                         [](const ::testing::TestParamInfo<SaveCase> &info) {
                             return std::string(info.param.name);
                         });

} // namespace
} // namespace hwtest
