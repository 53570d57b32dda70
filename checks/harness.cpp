#include "checks/harness.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>

#include "device/capability.h"
#include "driver/q7.h"
#include "driver/test_table.h"
#include "sim/program/text.h"
#include "sim/scenario/scenario.h"

namespace checks {
namespace {

// The product's own memory, copied before it exits.
struct Remains {
    Results results;
    Capability capability;
};

Outcome run_program(const Board& board, const std::function<int()>& program) {
    std::fflush(stdout);  // or the new process would print it again
    sim::Outcome got = sim::simulate(
        board, {program, [] {
                    const Remains remains{
                        results,
                        {g_bSupFrontPanel, g_iUsbNum, g_iCordNo, g_iAlarmOutNum, g_iAlarmInNum,
                         g_sata_port_num, g_cESataNum, g_cMiniSASNum, g_cSataNewRule}};
                    static_assert(sizeof remains <= sizeof sim::world->left);
                    std::memcpy(sim::world->left, &remains, sizeof remains);
                }});
    Remains remains;
    std::memcpy(&remains, got.world->left, sizeof remains);
    Outcome outcome;
    outcome.status = got.status;
    outcome.signal = got.signal;
    outcome.console = sim::gbk_to_utf8(got.console);
    outcome.errors = sim::gbk_to_utf8(got.errors);
    outcome.console_bytes = got.console;
    outcome.error_bytes = got.errors;
    for (const char* sanitizer : {"runtime error:", "AddressSanitizer", "ThreadSanitizer"}) {
        EXPECT_EQ(outcome.errors.find(sanitizer), std::string::npos) << outcome.errors;
    }
    outcome.results = remains.results;
    outcome.capability = remains.capability;
    outcome.stopped = got.reason;
    outcome.end_s = static_cast<double>(got.world->now) / 1e6;
    outcome.world = std::move(got.world);
    for (const sim::Event& event : outcome.world->log.all()) {
        if (!event.is_report()) continue;
        const std::string_view bytes = event.sent;
        outcome.record_bytes += bytes;
        outcome.records.push_back(sim::gbk_to_utf8(bytes.substr(8)));
    }
    return outcome;
}

}  // namespace

std::string Outcome::said() const {
    const std::string last = "no kill avcore\n";
    const std::size_t at = console.find(last);
    return at == std::string::npos ? console : console.substr(at + last.size());
}

std::string Outcome::calls(std::string_view path) const {
    std::string list;
    for (const sim::Event& event : world->log.all()) {
        if (event.is_of_board() || (path != "*" && event.path != path)) continue;
        char line[160];
        const double at = static_cast<double>(event.at) / 1e6;
        const bool closes = std::strcmp(event.function, "close") == 0;
        const auto argument = static_cast<long long>(closes ? event.fd : event.argument);
        if (std::strcmp(event.function, "ioctl") == 0) {
            std::snprintf(line, sizeof line, "%.3f ioctl 0x%X(%lld)", at, event.request, argument);
        } else {
            std::snprintf(line, sizeof line, "%.3f %s(%lld)", at, event.function, argument);
        }
        list += line;
        if (event.error != 0) list += std::string(" ") + strerrorname_np(event.error);
        list += '\n';
    }
    return list;
}

int Outcome::count(std::string_view function, std::string_view path) const {
    int count = 0;
    for (const sim::Event& event : world->log.all()) {
        if (event.is_call(function) && (path.empty() || event.path == path)) {
            ++count;
        }
    }
    return count;
}

std::vector<double> Outcome::changes(std::string_view device, std::string_view state) const {
    std::vector<double> instants;
    for (const sim::Event& event : world->log.all()) {
        if (event.is_change(device) && event.sent == state) {
            instants.push_back(static_cast<double>(event.at) / 1e6);
        }
    }
    return instants;
}

bool Outcome::nothing_is_mounted() const {
    return std::all_of(
        std::begin(world->mount_points), std::end(world->mount_points),
        [](const sim::MountPoint& point) { return !point.is_used() || point.disk < 0; });
}

Board healthy(const std::string& changes) {
    return sim::parse_board("base = \"healthy\"\n" + changes, "changes");
}

Board bare_board() {
    Board board;
    board.control.present = true;
    board.hardware.at("presence") = 0xFFFF;
    return board;
}

Outcome run(const std::string& words, const std::string& changes) {
    return run(healthy(changes), words);
}

Outcome run(const Board& board, const std::string& words) {
    std::istringstream text(words);
    return run_with(board, {std::istream_iterator<std::string>(text), {}});
}

Outcome run_with(const Board& board, const std::vector<std::string>& arguments,
                 const std::function<void()>& preset) {
    return run_program(board, [&] {
        std::vector<std::string> words{"q7"};
        words.insert(words.end(), arguments.begin(), arguments.end());
        std::vector<char*> pointers;
        for (std::string& word : words)
            pointers.push_back(word.data());
        pointers.push_back(nullptr);
        if (preset) preset();
        return q7_main(static_cast<int>(words.size()), pointers.data());
    });
}

std::vector<std::string> single_tests() {
    std::vector<std::string> words;
    for (std::size_t number = 1; number <= numbered_tests().size(); ++number)
        words.push_back("-o " + std::to_string(number));
    return words;
}

Outcome run_piece(const Board& board, const std::function<void()>& piece) {
    return run_program(board, [&] {
        std::setvbuf(stdout, nullptr, _IONBF, 0);
        piece();
        return 0;
    });
}

sim::Fault failing(std::string call, std::string path, std::uint32_t nth) {
    sim::Fault fault;
    fault.call = std::move(call);
    fault.path = std::move(path);
    fault.nth = nth;
    return fault;
}

sim::Fault failing_request(std::uint32_t request, std::uint32_t nth) {
    sim::Fault fault = failing("ioctl", {}, nth);
    fault.request = request;
    return fault;
}

std::set<std::string> documented(const std::string& heading) {
    std::ifstream file(Q7_SOURCE "/docs/defects.md");
    std::set<std::string> items;
    bool inside = false;
    for (std::string line; std::getline(file, line);) {
        if (line.rfind("##", 0) == 0) inside = (line + "\n").find(heading) != std::string::npos;
        if (!inside || line.rfind("- `", 0) != 0) continue;
        std::string item = line.substr(3, line.find('`', 3) - 3);
        if (const std::size_t at = item.find(" ; "); at != std::string::npos) item[at + 1] = '\n';
        items.insert(item);
    }
    return items;
}

bool full_form() { return std::getenv("Q7_FULL") != nullptr; }

int sample() {
    const char* const one_in = std::getenv("Q7_SAMPLE");
    return one_in == nullptr ? 1 : std::max(1, std::atoi(one_in));
}

}  // namespace checks
