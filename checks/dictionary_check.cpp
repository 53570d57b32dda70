// The fault dictionary: does it name the defect that a board has? Of defects that were not
// simulated for it, of pairs, and of those that a bring-up engineer described.
#include <gmock/gmock.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "checks/programs.h"
#include "station/dictionary/board.h"
#include "station/dictionary/diagnosis.h"
#include "station/dictionary/pages.h"
#include "station/text.h"

namespace {

using namespace station;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

const std::string kSource = Q7_SOURCE, kBinaries = Q7_BINARIES;
#ifdef __SANITIZE_ADDRESS__
constexpr bool kSlowBuild = true;  // a start of the simulator takes ten times as long
#else
constexpr bool kSlowBuild = false;
#endif

bool in_full() { return std::getenv("Q7_FULL") != nullptr; }

using Change = AttemptSimulator::Change;

// A model with its plan, its board, and the dictionary made of both.
struct Model {
    explicit Model(const std::string& name, const Change& variation = nullptr)
        : plan_file(kSource + "/plans/" + name + ".toml"),
          scenario(kSource + "/boards/" + name.substr(0, name.find('-')) + ".toml"),
          plan_text(read_file(plan_file)),
          plan(Plan::parse(plan_text, plan_file)),
          simulator(kBinaries + "/q7-sim", scenario, plan, plan_text, variation) {}

    std::string plan_file, scenario, plan_text;
    Plan plan;
    AttemptSimulator simulator;
};

struct KnownModel : Model {
    explicit KnownModel(const std::string& name)
        : Model(name), dictionary(make_dictionary(simulator, name + ".toml", nullptr)) {}
    Dictionary dictionary;
};

// Made once, by the first check that needs it.
const KnownModel& known(const std::string& name) {
    static std::map<std::string, std::unique_ptr<KnownModel>> models;
    std::unique_ptr<KnownModel>& model = models[name];
    if (!model) model = std::make_unique<KnownModel>(name);
    return *model;
}

const std::vector<std::string> kModels{"healthy-bridge", "healthy", "healthy-restore", "dvs", "nvr",
                                       "nvr-bridge"};

Symptoms symptoms_with(const AttemptSimulator& simulator, const Change& defect) {
    const SimulatedAttempt attempt = simulator.run(defect);
    return symptoms_of(attempt.judgement, attempt.evidence);
}

// True when one of the first `count` causes names this defect, or one with an equal signature.
bool is_named(const std::vector<Cause>& causes, const std::set<std::string>& wanted,
              std::size_t count) {
    for (std::size_t i = 0; i < std::min(count, causes.size()); ++i) {
        for (const KnownDefect* defect : causes[i].defects)
            if (wanted.count(defect->cause()) != 0) return true;
        for (const auto& group : causes[i].alternatives)
            for (const KnownDefect* defect : group)
                if (wanted.count(defect->cause()) != 0) return true;
    }
    return false;
}

std::size_t group_size(const Cause& cause) {
    std::size_t size = 0;
    for (const auto& group : cause.alternatives)
        size += 1 + group.size();
    return size;
}

// --- Defects that were not simulated -----------------------------------------------------------

struct Unseen {
    std::set<std::string> causes;  // any of them is right
    std::string kind, change;
};

// The generator of the dictionary takes other values than these.
class UnseenDefects {
  public:
    explicit UnseenDefects(const Model& model) : board_(model.simulator.board()), model_(model) {}

    std::vector<Unseen> all() {
        alarm();
        network();
        clock();
        usb();
        disks();
        rs485();
        panel();
        description();
        bridges();
        later();
        calls();
        return std::move(list_);
    }

  private:
    void add(std::set<std::string> causes, const std::string& change) {
        const std::string first = *causes.begin();
        list_.push_back({std::move(causes), first.substr(0, first.find(' ')), change + "\n"});
    }
    void add(const std::string& cause, const std::string& change) { add(std::set{cause}, change); }

    template <class Values>
    void add_each(const std::string& cause, const std::string& key, const Values& values) {
        for (const auto& value : values)
            add(cause, key + " = " + text(value));
    }

    static std::string text(const std::string& value) { return value; }
    static std::string text(const char* value) { return value; }
    static std::string text(std::int64_t value) { return std::to_string(value); }
    static std::string text(double value) { return std::to_string(value); }

    // Wires of the fixture: missing, three touching, or one that reaches two others.
    void alarm() {
        std::vector<std::vector<int>> wiring;
        for (const toml::node& output : *board_["alarm"]["wiring"].as_array()) {
            wiring.emplace_back();
            for (const toml::node& input : *output.as_array())
                wiring.back().push_back(input.value_or(0));
        }
        const auto written = [](const std::vector<std::vector<int>>& wires) {
            std::string text = "alarm.wiring = [";
            for (const auto& inputs : wires) {
                text += "[";
                for (const int input : inputs)
                    text += std::to_string(input) + ",";
                text += "],";
            }
            return text + "]";
        };
        for (int a = 1; a <= 16; ++a) {
            auto open = wiring;
            for (auto& inputs : open)
                inputs.erase(std::remove(inputs.begin(), inputs.end(), a), inputs.end());
            add("alarm.input.open " + std::to_string(a), written(open));
            if (a > 14) continue;
            const std::string x = std::to_string(a), y = std::to_string(a + 1),
                              z = std::to_string(a + 2);
            auto three = wiring, leak = wiring;
            for (std::size_t k = 0; k < wiring.size(); ++k) {
                const auto drives = [&](int input) {
                    return std::count(wiring[k].begin(), wiring[k].end(), input) != 0;
                };
                if (drives(a) || drives(a + 1) || drives(a + 2))
                    three[k].insert(three[k].end(), {a, a + 1, a + 2});
                if (drives(a)) leak[k].insert(leak[k].end(), {a + 1, a + 2});
            }
            const std::string shorted = "alarm.inputs.shorted ";
            add({shorted + x + " " + y, shorted + y + " " + z, shorted + x + " " + z},
                written(three));
            add({shorted + x + " " + y, shorted + x + " " + z}, written(leak));
        }
        for (std::size_t k = 0; k < wiring.size(); ++k) {
            std::string dead = "alarm.dead = [";
            for (const int input : wiring[k])
                dead += std::to_string(input) + ",";
            add("alarm.output.dead " + std::to_string(k + 1), dead + "]");
        }
    }

    void network() {
        int number = 0;
        for (const auto& [port, value] : *board_["ports"].as_table()) {
            ++number;
            for (const std::string medium : {"copper", "fibre"}) {
                const std::string place = medium + ".slow " + std::to_string(number);
                const std::string key = "ports." + std::string(port) + "." + medium + ".";
                add_each("network." + place, key + "speed",
                         std::vector<std::int64_t>{0, 1, 50, 2500, 10'000});
                for (const int speed : {0, 50, 2500})
                    add("network." + place, key + "speed = " + std::to_string(speed) + "\n" + key
                                                + "full_duplex = false");
            }
        }
    }

    void clock() {
        add_each("rtc.wrong", "rtc.offset",
                 std::vector<std::int64_t>{7, -11, 25, -45, 400, -300, 1800, 7200, -10'000, 200'000,
                                           -600'000, 9'000'000});
        add_each(
            "rtc.battery", "rtc.offset",
            std::vector<std::int64_t>{-1'780'000'000, -1'470'012'345, -848'000'000, -810'000'321,
                                      -500'000'000, -400'000'000, -350'000'000, -240'000'000});
        for (const int offset : {-5000, -86'400, 30})
            add("rtc.stopped", "rtc.rate = 0\nrtc.offset = " + std::to_string(offset));
        add_each("rtc.fast", "rtc.rate", std::vector<double>{1.2, 1.3, 1.7, 3, 10});
        add_each("rtc.slow", "rtc.rate", std::vector<double>{0.2, 0.3, 0.7, 0.8, 0.85});
    }

    void usb() {
        for (const std::string node : {"msa1", "msb1", "msc1", "msd1"}) {
            const std::string key = "usb.disks." + node + ".";
            add_each("usb.disk.full " + node, key + "free_blocks",
                     std::vector<std::int64_t>{10, 300, 5000});
            add("usb.disk.full " + node, key + "free_blocks = 1000\n" + key + "block_size = 512");
            add("usb.disk.unmountable " + node,
                key + "mount = 'no file system'\n" + key + "free_blocks = 5_000_000");
        }
        add_each("usb.extra", "usb.mice", std::vector<std::int64_t>{3, 4, 5});
    }

    void disks() {
        std::vector<std::string> nodes;
        for (const auto& [node, disk] : *board_["disks"].as_table())
            nodes.emplace_back(node);
        const auto is_internal = [](const std::string& node) { return node.starts_with("sd"); };
        std::stable_partition(nodes.begin(), nodes.end(), is_internal);
        for (auto at = nodes.begin(); at != nodes.end(); ++at) {
            const std::string& node = *at;
            const std::string key = "disks." + node + ".";
            add_each("sata.disk.other " + node, key + "bytes",
                     std::vector<std::int64_t>{1'000'000'000, 120'034'123'776, 500'107'862'016,
                                               3'000'592'982'016, 8'001'563'222'016});
            add("sata.disk.other " + node, key + "model = 'WB 1000'");
            add("sata.disk.other " + node,
                key + "model = 'WB 500'\n" + key + "bytes = 500107862016");
            std::string garbage, zeros;
            for (int i = 0; i < 94; ++i) {
                garbage += i % 3 == 0 ? "A7" : "E1";
                zeros += "00";
            }
            add("sata.disk.texts " + node, key + "identify_data = '" + garbage + "'");
            add("sata.disk.texts " + node, key + "identify_data = '" + zeros + "'");
            // The dictionary gives the second the serial number of the first.
            for (auto other = at + 1; other != nodes.end(); ++other)
                add("sata.disks.doubled " + node + " " + *other,
                    key + "serial = '" + board_["disks"][*other]["serial"].value_or(std::string())
                        + "'");
        }
    }

    static std::string bytes(int first, int last, int step) {
        std::string list = "[";
        for (int byte = first; byte <= last; byte += step)
            list += std::to_string(byte) + ",";
        return list + "]";
    }

    void rs485() {
        for (const std::string& list :
             {bytes(9, 1023, 10), bytes(100, 100, 1), bytes(3, 5, 1), bytes(1014, 1023, 1),
              bytes(0, 4, 1), bytes(2, 1023, 3), bytes(300, 800, 250), bytes(200, 400, 1)}) {
            add("rs485.lost", "rs485.drop = " + list);
            add("rs485.corrupt", "rs485.corrupt = " + list);
        }
        add_each("rs485.late", "rs485.delay", std::vector<double>{5.5, 8, 20});
        add("rs485.no-echo", "rs485.drop = " + bytes(0, 1023, 1));
    }

    void panel() {
        const toml::array* frames = board_["panel"]["frames"].as_array();
        if (frames == nullptr || frames->empty()) return;
        for (const toml::node& chosen : *frames) {
            std::string list = "panel.frames = [";
            const std::string key = (*chosen.as_table())["key"].value_or(std::string());
            for (const toml::node& frame : *frames) {
                const std::string own = (*frame.as_table())["key"].value_or(std::string());
                list += "{at = " + text((*frame.as_table())["at"].value_or(0.0));
                list += own == key ? ", bytes = 'FF 06 20 EE 01 11'}," : ", key = '" + own + "'},";
            }
            add("panel.key.unknown " + key, list + "]");
        }
    }

    void description() {
        const std::vector<std::pair<const char*, std::vector<std::int64_t>>> fields{
            {"memory_size", {2, 4, 5, 6}},
            {"flash_size", {2}},
            {"cpld_date", {0x4DF5, 0x0001}},
            {"channels", {3, 5, 6, 7, 9, 12}},
            {"sata_layout", {2, 3, 8, 9}},
            {"alarm_inputs", {1, 7, 9, 12, 20, 255}},
            {"alarm_outputs", {5, 6, 8, 9, 100}},
            {"model", {0xB002, 0x1234}},
            {"minisas", {2, 3}},
            {"esata", {3}},
            {"device_type", {3}}};
        for (const auto& [field, values] : fields)
            for (const std::int64_t value : values)
                if (value != board_["hardware"][field].value_or(std::int64_t{0}))
                    add(std::string("board.field ") + field,
                        std::string("hardware.") + field + " = " + std::to_string(value));
    }

    void bridges() {
        const toml::table* bridges = board_["bridges"].as_table();
        if (bridges == nullptr) return;
        for (const auto& [key, bridge] : *bridges) {
            const std::string name(key), at = "bridges." + name + ".";
            add_each("pmp.old " + name, at + "image", std::vector<std::int64_t>{1024, 3072});
            add("pmp.blank " + name, at + "flash = '00 01'");
            add_each("pmp.absent " + name, at + "presence", std::vector<std::int64_t>{1, 0x55});
            add("pmp.variant " + name, at + "revision = 0x30");
            add("pmp.variant " + name, at + "bonding_low = 0x7");
            add("pmp.protected " + name,
                at + "image = 2048\n" + at + "protection = 0x0C\n" + at + "unlocks = false");
            add("pmp.programs " + name, at + "flash = ''\n" + at + "programs = false");
        }
    }

    // Added to the changes that the healthy board has in the middle of its run.
    void add_later(const std::string& cause, const std::string& changes) {
        const toml::table added = toml::parse("changes = [" + changes + "]");
        add(cause, model_.simulator.change([&](toml::table& board) {
            for (const toml::node& change : *added["changes"].as_array())
                board["changes"].as_array()->push_back(change);
        }));
    }

    // What fails in the middle of the run: by the clock, for a while, again and again.
    void later() {
        for (const double at_s : {4.4, 5.2, 6.9, 7.7, 8.7, 10.5, 13.0})
            for (const std::string what :
                 {"connected = false", "blocked = true", "present = false"})
                add_later("panel.dies", "{at = " + text(at_s) + ", panel." + what + "}");
        for (const std::string port : {"1", "2", "3", "4"})
            for (const auto& [medium, from_s] :
                 std::initializer_list<std::pair<std::string, double>>{{"copper", 19.0},
                                                                       {"fibre", 25.0}})
                add_later("network." + medium + ".drops " + port,
                          "{at = " + text(from_s) + ", ports.eth" + std::to_string(port[0] - '1')
                              + "." + medium + ".up = false}, {at = " + text(from_s + 3)
                              + ", ports.eth" + std::to_string(port[0] - '1') + "." + medium
                              + ".up = true}");
        for (const int input : {1, 4, 11, 16})
            for (const double at_s : {28.5, 30.5, 32.5, 34.5, 36.5})
                add_later("alarm.input.loose " + std::to_string(input),
                          "{at = " + text(at_s) + ", alarm.stuck = [" + std::to_string(input)
                              + "]}, {at = " + text(at_s + 1) + ", alarm.stuck = []}");
        for (const std::string node : {"msa1", "msb1", "msc1", "msd1"})
            add_later("usb.disk.loose " + node,
                      "{at = 42.9, usb.disks." + node + ".present = false}");
        for (const auto& [node, disk] : *board_["disks"].as_table()) {
            const std::string key = "disks." + std::string(node) + ".";
            add_later("sata.disk.drops " + std::string(node),
                      "{at = 40, " + key + "present = false}");
            add_each("sata.disk.slow " + std::string(node), key + "request_time",
                     std::vector<double>{5, 150, 1000});
        }
        add_each("usb.slow", "usb.mount_time", std::vector<double>{20, 150, 200});
        for (const double at_s : {38.5, 39.5})
            add_later("rtc.drops", "{at = " + text(at_s) + ", rtc.present = false}");
        for (const double at_s : {45.1, 45.25, 45.3, 45.5, 45.7, 45.9})
            add_later("rs485.drops", "{at = " + text(at_s) + ", rs485.hung_up = true}");
        add_each("rs485.lost", "rs485.drop_every", std::vector<std::int64_t>{2, 17, 300});
        add_each("rs485.corrupt", "rs485.corrupt_every", std::vector<std::int64_t>{2, 17, 300});
        for (const std::string line : {"panel", "rs485"}) {
            add(line + ".mode", line + ".lflag = 0x800B");
            add(line + ".mode", line + ".cflag = 0x10B2");
        }
    }

    // Failures of a later call, with another error.
    void calls() {
        for (const auto& [call, count] : model_.simulator.calls()) {
            std::string place = call.function;
            std::string fault = "call = '" + call.function + "'";
            if (!call.path.empty()) {
                place += " " + call.path;
                fault += ", path = '" + call.path + "'";
            }
            if (!call.request.empty()) {
                place += " " + call.request;
                fault += ", request = " + call.request;
            }
            std::vector<std::string> failures{"nth = 9, errno = 'ENODEV'",
                                              "nth = 2, errno = 'EACCES'",
                                              "nth = 2, onwards = true, errno = 'ENXIO'",
                                              "nth = 5, onwards = true, errno = 'EPERM'"};
            if (call.function == "read" || call.function == "write")
                for (const char* cut :
                     {"effect = 'short', count = 1", "effect = 'short', nth = 2, count = 3"})
                    failures.emplace_back(cut);
            for (const std::string& what : failures)
                add("call.fails " + place, "faults = [{" + fault + ", " + what + "}]");
        }
    }

    const toml::table& board_;
    const Model& model_;
    std::vector<Unseen> list_;
};

struct Score {
    int made = 0, hidden = 0, first = 0, three = 0;
    std::size_t groups = 0;
    int seen() const { return made - hidden; }
    void operator+=(const Score& other) {
        made += other.made;
        hidden += other.hidden;
        first += other.first;
        three += other.three;
        groups += other.groups;
    }
};

void print(const std::string& name, const Score& score) {
    std::printf("%-28s %5d %6d %6.1f %6.1f %6.1f\n", name.c_str(), score.made, score.hidden,
                100.0 * score.first / std::max(1, score.seen()),
                100.0 * score.three / std::max(1, score.seen()),
                static_cast<double>(score.groups) / std::max(1, score.seen()));
}

// None of them is a defect of the dictionary.
void expect_unseen(const KnownModel& model, const std::vector<Unseen>& unseen) {
    std::set<std::string> simulated;
    for (const Signature& signature : model.dictionary.signatures)
        for (const KnownDefect& defect : signature.defects)
            simulated.insert(defect.change);
    for (const Unseen& defect : unseen) {
        const std::string change =
            model.simulator.change([&](toml::table& board) { apply_change(board, defect.change); });
        EXPECT_EQ(simulated.count(change), 0u) << change;
    }
}

// Of every `step`th unseen defect.
std::map<std::string, Score> scores_of(const KnownModel& model, const AttemptSimulator& simulator,
                                       std::size_t step) {
    std::vector<Unseen> all = UnseenDefects(model).all(), unseen;
    for (std::size_t i = 0; i < all.size(); i += step)
        unseen.push_back(all[i]);
    std::vector<Score> each(unseen.size());
    in_parallel(unseen.size(), [&](std::size_t i) {
        const Symptoms symptoms = symptoms_with(
            simulator, [&](toml::table& board) { apply_change(board, unseen[i].change); });
        Score& score = each[i];
        score.made = 1;
        score.hidden = symptoms.empty() ? 1 : 0;
        if (symptoms.empty()) return;
        const std::vector<Cause> causes = causes_of(model.dictionary, symptoms);
        score.first = is_named(causes, unseen[i].causes, 1) ? 1 : 0;
        score.three = is_named(causes, unseen[i].causes, 3) ? 1 : 0;
        score.groups = causes.empty() ? 0 : group_size(causes[0]);
        if (score.three == 0 && std::getenv("Q7_MISSES") != nullptr) {
            std::printf("missed %s: %s", unseen[i].causes.begin()->c_str(),
                        unseen[i].change.c_str());
            for (const auto& [name, value] : symptoms)
                std::printf("    %s = %s\n", name.c_str(), value.c_str());
            for (const Cause& cause : causes) {
                for (const KnownDefect* defect : cause.defects)
                    std::printf("  %.3f %s", cause.fit, defect->cause().c_str());
                std::printf("\n");
            }
        }
    });
    std::map<std::string, Score> scores;
    for (std::size_t i = 0; i < unseen.size(); ++i)
        scores[unseen[i].kind] += each[i];
    return scores;
}

Score total_of(const std::map<std::string, Score>& scores) {
    Score total;
    for (const auto& [kind, score] : scores)
        total += score;
    return total;
}

// Under which the board is as good as before: other press times, one second of the clock, other
// disks of the same model, other free space.
void vary(toml::table& board) {
    if (toml::array* frames = board["panel"]["frames"].as_array()) {
        double later = 0.7;
        for (toml::node& frame : *frames) {
            toml::table& entry = *frame.as_table();
            entry.insert_or_assign("at", entry["at"].value_or(0.0) + later);
            later += 0.4;
        }
    }
    table_at(board, {"rtc"}).insert_or_assign("offset", 1);
    for (auto&& [node, disk] : *board["disks"].as_table())
        disk.as_table()->insert_or_assign("serial", "WX-" + std::string(node) + "-77");
    for (auto&& [node, disk] : *board["usb"]["disks"].as_table())
        disk.as_table()->insert_or_assign("free_blocks", 700'123);
}

TEST(DictionaryCheck, NamesSingleDefectsThatWereNotSimulated) {
    if (kSlowBuild) GTEST_SKIP() << "a matter of figures, not of memory";
    const std::size_t step = in_full() ? 1 : 5;
    std::printf("%-28s %5s %6s %6s %6s %6s\n", "", "made", "hidden", "first%", "three%", "group");
    for (const std::string& name : kModels) {
        if (!in_full() && name != kModels.front()) continue;
        const KnownModel& model = known(name);
        expect_unseen(model, UnseenDefects(model).all());
        const auto scores = scores_of(model, model.simulator, step);
        for (const auto& [kind, score] : scores) {
            print(name + " " + kind, score);
            if (in_full()) {
                EXPECT_GE(score.three, 0.95 * score.seen()) << name << " " << kind;
            }
        }
        const Score total = total_of(scores);
        print(name, total);
        EXPECT_GE(total.three, 0.95 * total.seen());
        EXPECT_GT(total.seen(), in_full() ? 250 : 50);

        std::fflush(stdout);
        const Model varied(name, vary);
        const Score noisy = total_of(scores_of(model, varied.simulator, step));
        print(name + " with noise", noisy);
        EXPECT_GE(1.0 * noisy.three / noisy.seen(), 1.0 * total.three / total.seen() - 0.02);
    }
}

// --- Pairs -------------------------------------------------------------------------------------

struct Pair {
    const Signature *a, *b;
    std::size_t first, second;  // places in the list of defects
};

// True when the other defect hides everything that this one shows alone.
bool is_masked(const Symptoms& alone, const Symptoms& other, const Symptoms& both) {
    return std::none_of(alone.begin(), alone.end(), [&](const auto& symptom) {
        return other.count(symptom.first) == 0 && both.count(symptom.first) != 0;
    });
}

struct PairScore {
    int made = 0, masked = 0, both = 0, one = 0;
    int seen() const { return made - masked; }
};

PairScore score_pairs(const KnownModel& model, const AttemptSimulator& simulator, int wanted) {
    const std::vector<Defect> defects =
        defects_of(model.simulator.board(), model.simulator.calls());
    std::map<std::string, std::vector<std::size_t>> by_kind;
    std::map<std::size_t, const Signature*> signatures;
    for (std::size_t i = 0; i < defects.size(); ++i) {
        const std::string change = model.simulator.change(defects[i].apply);
        for (const Signature& signature : model.dictionary.signatures)
            for (const KnownDefect& defect : signature.defects)
                if (defect.change == change && !signature.symptoms.empty())
                    signatures[i] = &signature;
        if (signatures.count(i) != 0) by_kind[std::string(defects[i].kind->name)].push_back(i);
    }
    std::vector<std::vector<std::size_t>> kinds;
    for (const auto& [kind, list] : by_kind)
        kinds.push_back(list);
    std::mt19937 random(7);
    const auto draw = [&](std::size_t count) { return random() % count; };
    std::vector<std::pair<std::size_t, std::size_t>> pairs;
    while (pairs.size() < static_cast<std::size_t>(wanted)) {
        const auto &one = kinds[draw(kinds.size())], &two = kinds[draw(kinds.size())];
        const std::size_t a = one[draw(one.size())], b = two[draw(two.size())];
        if (defects[a].name() != defects[b].name()) pairs.emplace_back(a, b);
    }
    std::vector<PairScore> each(pairs.size());
    in_parallel(pairs.size(), [&](std::size_t i) {
        const auto [a, b] = pairs[i];
        const Symptoms symptoms = symptoms_with(simulator, [&](toml::table& board) {
            defects[a].apply(board);
            defects[b].apply(board);
        });
        PairScore& score = each[i];
        score.made = 1;
        const Symptoms &alone_a = signatures.at(a)->symptoms, &alone_b = signatures.at(b)->symptoms;
        if (is_masked(alone_a, alone_b, symptoms) || is_masked(alone_b, alone_a, symptoms)) {
            score.masked = 1;
            return;
        }
        const std::vector<Cause> causes = causes_of(model.dictionary, symptoms);
        const bool first = is_named(causes, {defects[a].name()}, kCausesShown),
                   second = is_named(causes, {defects[b].name()}, kCausesShown);
        score.both = first && second ? 1 : 0;
        score.one = first != second ? 1 : 0;
        if (score.both == 0 && std::getenv("Q7_MISSES") != nullptr) {
            std::printf("missed %s%s + %s%s\n", defects[a].name().c_str(), first ? "" : "!",
                        defects[b].name().c_str(), second ? "" : "!");
            for (const Cause& cause : causes) {
                for (const KnownDefect* defect : cause.defects)
                    std::printf("  %.3f %s", cause.fit, defect->cause().c_str());
                std::printf("\n");
            }
        }
    });
    PairScore total;
    for (const PairScore& score : each) {
        total.made += score.made;
        total.masked += score.masked;
        total.both += score.both;
        total.one += score.one;
    }
    return total;
}

TEST(DictionaryCheck, NamesBothDefectsOfAPair) {
    if (kSlowBuild) GTEST_SKIP() << "a matter of figures, not of memory";
    for (const std::string& name : kModels) {
        if (!in_full() && name != kModels.front()) continue;
        const KnownModel& model = known(name);
        const PairScore score = score_pairs(model, model.simulator, in_full() ? 500 : 100);
        std::printf("%s: %d pairs, %d mask each other; of the others both %.1f %%, one %.1f %%\n",
                    name.c_str(), score.made, score.masked, 100.0 * score.both / score.seen(),
                    100.0 * score.one / score.seen());
        EXPECT_GE(score.both, 0.8 * score.seen());
        const Model varied(name, vary);
        const PairScore noisy = score_pairs(model, varied.simulator, in_full() ? 500 : 100);
        std::printf("%s with noise: both %.1f %%\n", name.c_str(),
                    100.0 * noisy.both / noisy.seen());
        EXPECT_GE(1.0 * noisy.both / noisy.seen(), 1.0 * score.both / score.seen() - 0.02);
    }
}

// --- Repair slips ------------------------------------------------------------------------------

// What an engineer did to the board, and what he would write on the slip: words of the title and of
// what to check, of the first cause or one with an equal signature.
struct Slip {
    const char *story, *change, *title, *check;
};
constexpr Slip kSlips[] = {
    {"a bent pin touches its neighbour",
     "alarm.wiring = [[1, 5, 9, 13], [2, 6, 10, 14], [3, 4, 7, 11, 15], [3, 4, 8, 12, 16]]",
     "Inputs 3 and 4 shorted", "bent pin"},
    {"a fibre transceiver is plugged half", "ports.eth2.fibre.up = false", "LAN 3 fibre: no link",
     "Push the transceiver home"},
    {"the cable of disk 2 is in a port that the board does not have",
     "disks.sdb.present = false\ndisks.sde = {serial = 'SIM-0002', model = 'Simulated disk 1 TB'}",
     "Disk sdb missing", "in the right port"},
    {"a stick of 2.0 is in the lower 3.0 port",
     "usb.devices.'4-2:1.0'.present = false\nusb.devices.'3-2:1.0'.present = true",
     "Rear USB port, lower: no USB 3.0", "the stick is a 3.0 one"},
    {"the backup battery is dead: the clock shows 2000-01-01", "rtc.offset = -848649600",
     "Backup battery dead", "Measure the battery"},
    {"the crystal of the clock has a cold joint", "rtc.rate = 0", "Clock stands still", "crystal"},
    {"the transceiver drops each tenth byte", "rs485.drop_every = 10", "RS-485 loses bytes",
     "Replace the transceiver"},
    {"nobody plugged the RS-485 fixture", "rs485.fixture = false", "RS-485: nothing comes back",
     "fixture's RS-485 plug"},
    {"the contact of relay 2 is welded", "alarm.stuck = [2, 6, 10, 14]", "Output 2 always on",
     "replace relay 2"},
    {"a four-fold optocoupler is not soldered", "alarm.dead = [5, 6, 7, 8]", "Inputs 5–8 all open",
     "optocoupler"},
    {"a pair of the network cable is open", "ports.eth1.copper.speed = 100",
     "LAN 2 copper: wrong speed", "a pair is open"},
    {"the cable of the panel is not plugged in", "panel.connected = false", "Front panel dead",
     "both ends of the panel cable"},
    {"the boot parameters are those of another model",
     "control = {boot_device_type = 0x4487, high_lines = [25]}",
     "Boot parameters: no alarm I/O, no RS-485", "Compare with the label"},
    {"two fixture wires are broken", "alarm.dead = [3, 7]", "Input 3 open; Input 7 open",
     "fixture wire 3"},
    {"the switch for fibre has no power and the buzzer is not soldered",
     "ports.eth0.fibre.up = false\nports.eth1.fibre.up = false\nports.eth2.fibre.up = false\n"
     "ports.eth3.fibre.up = false\n"
     "faults = [{call = 'ioctl', path = '/dev/zebio', request = 1, onwards = true}]",
     "Buzzer silent; No fibre port has a link", "fibre switch has power"},
};

// The titles of a cause, each of a pair by itself, in the order of the alphabet.
std::string titles(std::vector<std::string> parts) {
    std::sort(parts.begin(), parts.end());
    std::string all;
    for (const std::string& part : parts)
        all += (all.empty() ? "" : "; ") + part;
    return all;
}

void expect_slip(const KnownModel& model, const Slip& slip) {
    const Symptoms symptoms = symptoms_with(
        model.simulator, [&](toml::table& board) { apply_change(board, slip.change); });
    const std::vector<Cause> causes = causes_of(model.dictionary, symptoms);
    ASSERT_FALSE(causes.empty()) << slip.story;
    std::vector<std::string> parts;
    std::string group, checks;
    for (const KnownDefect* defect : causes[0].defects) {
        parts.push_back(title_of(*defect->kind, defect->places).en);
        checks += check_of(*defect->kind, defect->places).en;
    }
    for (const auto& alternatives : causes[0].alternatives)
        for (const KnownDefect* defect : alternatives) {
            group += title_of(*defect->kind, defect->places).en + "\n";
            checks += check_of(*defect->kind, defect->places).en;
        }
    EXPECT_TRUE(titles(parts) == slip.title || group.find(slip.title) != std::string::npos)
        << slip.story << ": " << titles(parts) << "\n"
        << group;
    EXPECT_THAT(checks, HasSubstr(slip.check)) << slip.story;
}

std::set<std::string> headings_of(const std::string& page) {
    std::set<std::string> headings;
    std::istringstream lines(page);
    for (std::string line; std::getline(lines, line);)
        if (line.starts_with("### ")) headings.insert(line.substr(4));
    return headings;
}

// Each thing that can be seen with this model has its entry.
void expect_entries(const Dictionary& dictionary) {
    const auto english = headings_of(read_file(kSource + "/docs/faults.md")),
               chinese = headings_of(read_file(kSource + "/docs/faults.zh.md"));
    EXPECT_GT(english.size(), 100u);
    for (const Signature& signature : dictionary.signatures)
        for (const auto& [name, value] : signature.symptoms) {
            if (!weight_of(name).shown) continue;
            EXPECT_THAT(english, Contains(catalogue_entry(name, value, Language::en)))
                << "docs/faults.md is older than the dictionary: tools/faults";
            EXPECT_THAT(chinese, Contains(catalogue_entry(name, value, Language::zh)));
        }
}

TEST(DictionaryCheck, WritesWhatAnEngineerWouldWrite) {
    const KnownModel& model = known("healthy");
    for (const Slip& slip : kSlips)
        expect_slip(model, slip);

    const Symptoms strange{{"text something that nobody has seen", "unexplained"}};
    EXPECT_TRUE(causes_of(model.dictionary, strange).empty());
    EXPECT_TRUE(causes_of(model.dictionary, Symptoms{}).empty());
    Judgement judgement;
    judgement.plan_sha256 = model.plan.sha256;
    diagnose(model.dictionary, judgement, Evidence{});
    EXPECT_THAT(cause_lines(judgement), HasSubstr("knows no defect that fits"));
    // What is shown beside it.
    Symptoms both = symptoms_with(
        model.simulator, [](toml::table& board) { apply_change(board, "rtc.present = false"); });
    both.insert(strange.begin(), strange.end());
    judgement.causes = to_json(causes_of(model.dictionary, both));
    EXPECT_THAT(cause_lines(judgement),
                testing::AllOf(HasSubstr(": Clock chip not found. "), HasSubstr("时钟芯片读不到"),
                               HasSubstr("or 或: "), HasSubstr("explains 能解释: rtc.1."),
                               HasSubstr("leaves unexplained 未解释: text something")));
    judgement.plan_sha256 = "that of another plan";
    EXPECT_THROW(diagnose(model.dictionary, judgement, Evidence{}), DictionaryError);

    // The file is the dictionary, and a damaged one is none.
    const std::string text = to_text(model.dictionary);
    EXPECT_EQ(to_text(parse_dictionary(text, "file")), text);
    for (std::size_t end = 0; end < text.size(); end += 1 + text.size() / 200)
        EXPECT_THROW(parse_dictionary(text.substr(0, end), "file"), DictionaryError) << end;
    std::string other = text;
    other.replace(other.find("\"fault_dictionary\":1"), 20, "\"fault_dictionary\":2");
    EXPECT_THROW(parse_dictionary(other, "file"), DictionaryError);

    expect_entries(model.dictionary);
}

TEST(DictionaryCheck, RefusesABoardThatDoesNotPass) {
    const auto refused = checks::shell(
        kBinaries + "/q7-station dictionary --plan " + kSource + "/plans/healthy.toml --board "
        + kSource + "/boards/disk-missing.toml --simulator " + kBinaries + "/q7-sim");
    EXPECT_EQ(refused.status, 2);
    EXPECT_THAT(refused.err, HasSubstr("does not pass the plan: sata: "));
    EXPECT_EQ(refused.out, "");
}

// The pages as they would be made now.
TEST(DictionaryCheck, PagesAreThoseOfTheDictionaries) {
    if (!in_full() || kSlowBuild) GTEST_SKIP() << "the long form";
    std::set<std::string> files;
    for (const auto& entry : std::filesystem::directory_iterator(kSource + "/plans"))
        files.insert(entry.path().filename().string());
    std::vector<Dictionary> dictionaries;
    for (const std::string& file : files)
        dictionaries.push_back(known(std::filesystem::path(file).stem().string()).dictionary);
    EXPECT_EQ(fault_catalogue(dictionaries, Language::en), read_file(kSource + "/docs/faults.md"));
    EXPECT_EQ(fault_catalogue(dictionaries, Language::zh),
              read_file(kSource + "/docs/faults.zh.md"));
    EXPECT_THAT(read_file(kSource + "/docs/defects.md"), HasSubstr(blind_spots(dictionaries)));
}

}  // namespace
