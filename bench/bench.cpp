// Measures the costs that q7 promises, and prints each figure beside its limit. Arguments: the
// folders of the board's builds for this machine, for hard and for soft float, the trivial process,
// and q7-sim.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "bench/played_board.h"
#include "pmp/bridge.h"
#include "pmp/pmpupdate.h"

namespace {

using Clock = std::chrono::steady_clock;

std::string here, hard, soft, trivial, simulator;

void bare_ioctl(benchmark::State& state) {
    const int disk = open_played_disk();
    int unread = 0;
    for ([[maybe_unused]] auto _ : state)
        benchmark::DoNotOptimize(::ioctl(disk, FIONREAD, &unread));
}

void bridge_request(benchmark::State& state) {
    g_bridge.disk = open_played_disk();
    for ([[maybe_unused]] auto _ : state)
        benchmark::DoNotOptimize(spiREAD(16));
}

// With what it prints, into /dev/null.
void upload(benchmark::State& state) {
    const PlayedBoard before = played;
    for ([[maybe_unused]] auto _ : state) {
        clear_played_flash();
        platform::Descriptor disk(open_played_disk());
        if (pmpupdate(disk) != 0 || g_pmp_updated != 1) state.SkipWithError("no upload");
    }
    const auto runs = static_cast<double>(state.iterations());
    state.counters["requests"] = static_cast<double>(played.requests - before.requests) / runs;
    state.counters["allocations"] =
        static_cast<double>(played.allocations - before.allocations) / runs;
}

pid_t start(const std::vector<std::string>& words, int output) {
    std::vector<char*> pointers;
    for (const std::string& word : words)
        pointers.push_back(const_cast<char*>(word.c_str()));
    pointers.push_back(nullptr);
    const pid_t child = ::fork();
    if (child < 0) std::abort();
    if (child > 0) return child;
    ::dup2(output, STDOUT_FILENO);
    ::dup2(::open("/dev/null", O_WRONLY), STDERR_FILENO);
    ::execv(pointers[0], pointers.data());
    ::_exit(127);
}

// Seconds until the first byte of its output, and until it has ended.
struct Times {
    double first_byte, end;
};

Times time_of(const std::vector<std::string>& words) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) std::abort();
    const auto begin = Clock::now();
    const auto passed = [&] { return std::chrono::duration<double>(Clock::now() - begin).count(); };
    const pid_t child = start(words, ends[1]);
    ::close(ends[1]);
    Times times{};
    char buffer[65536];
    ssize_t count = 0;
    while ((count = ::read(ends[0], buffer, sizeof buffer)) > 0) {
        if (times.first_byte == 0) times.first_byte = passed();
    }
    if (::waitpid(child, nullptr, 0) != child) std::abort();
    ::close(ends[0]);
    times.end = passed();
    return times;
}

void first_byte(benchmark::State& state, const std::vector<std::string>& words) {
    for ([[maybe_unused]] auto _ : state)
        state.SetIterationTime(time_of(words).first_byte);
}

void whole_run(benchmark::State& state, const std::vector<std::string>& words) {
    for ([[maybe_unused]] auto _ : state)
        state.SetIterationTime(time_of(words).end);
}

struct Memory {
    double resident_kib = -1;
    int heap_blocks = -1;
};

// Of a whole console sequence, as the played board says it.
Memory memory() {
    FILE* report = ::popen((here + "/q7-played 2>&1 >/dev/null </dev/null").c_str(), "r");
    Memory got;
    if (report == nullptr
        || std::fscanf(report, "%lf KiB resident, %d heap", &got.resident_kib, &got.heap_blocks)
               != 2)
        std::abort();
    ::pclose(report);
    return got;
}

double size_kb(const std::string& path) {
    return static_cast<double>(std::filesystem::file_size(path)) / 1e3;
}

// Keeps the least figures, which other load on the machine disturbs least, by name.
class Least final : public benchmark::BenchmarkReporter {
  public:
    bool ReportContext(const Context&) override { return true; }
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.error_occurred) {
                std::fprintf(stderr, "q7-bench: %s: %s\n", run.run_name.function_name.c_str(),
                             run.error_message.c_str());
                std::exit(1);
            }
            if (run.aggregate_name != "min") continue;
            const std::string& name = run.run_name.function_name;
            cpu[name] = run.GetAdjustedCPUTime() / 1e9;
            real[name] = run.GetAdjustedRealTime() / 1e9;
            for (const auto& [counter, value] : run.counters)
                counters[counter] = value.value;
        }
    }
    std::map<std::string, double> cpu, real, counters;  // seconds an iteration
};

bool kept = true;

void print(const char* what, double value, double limit, const char* unit) {
    std::printf("%-58s %10.3f %10.3f  %-4s %s\n", what, value, limit, unit,
                value <= limit ? "kept" : "BROKEN");
    kept = kept && value <= limit;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 6) {
        std::fprintf(stderr, "q7-bench: run it with tools/bench\n");
        return 2;
    }
    here = argv[1], hard = argv[2], soft = argv[3], trivial = argv[4], simulator = argv[5];
    using benchmark::RegisterBenchmark;
    const auto repeat = [](benchmark::internal::Benchmark* each) {
        return each->ReportAggregatesOnly()->ComputeStatistics("min", [](const auto& figures) {
            return *std::min_element(figures.begin(), figures.end());
        });
    };
    repeat(RegisterBenchmark("bare", bare_ioctl))->Repetitions(9);
    repeat(RegisterBenchmark("request", bridge_request))->Repetitions(9);
    repeat(RegisterBenchmark("upload", upload))->Repetitions(3);
    const auto runs = [&](const char* name, auto how, const std::vector<std::string>& words) {
        repeat(RegisterBenchmark(name, how, words))
            ->UseManualTime()
            ->Iterations(1)
            ->Repetitions(50);
    };
    runs("trivial", first_byte, {trivial});
    runs("q7", first_byte, {here + "/q7", "-h"});
    runs("console", whole_run, {simulator});
    runs("net", whole_run, {simulator, "netQ7test"});
    std::vector<std::string> many{simulator, "--check"};
    many.insert(many.end(), 1000, "bench/expected.toml");
    repeat(RegisterBenchmark("many", whole_run, many))
        ->UseManualTime()
        ->Iterations(1)
        ->Repetitions(3);

    // The upload prints; hide that.
    std::fflush(stdout);
    const int screen = ::dup(STDOUT_FILENO);
    ::dup2(::open("/dev/null", O_WRONLY), STDOUT_FILENO);
    std::setvbuf(stdout, nullptr, _IONBF, 0);
    Least least;
    benchmark::RunSpecifiedBenchmarks(&least);
    ::dup2(screen, STDOUT_FILENO);

    auto &cpu = least.cpu, &real = least.real, &counters = least.counters;
    const double words = kImageSize / 4;
    std::printf("%-58s %10s %10s\n", "measure", "figure", "limit");
    print("own CPU time of a bridge request (beyond a bare ioctl)",
          1e6 * (cpu["request"] - cpu["bare"]), 1, "us");
    print("the same, in bare ioctls", cpu["request"] / cpu["bare"] - 1, 5, "");
    print("requests a programmed word of an upload", counters["requests"] / words, 3.01, "");
    print("heap allocations of an upload", counters["allocations"], 2, "");
    print("start to first byte, beyond the trivial process", 1e3 * (real["q7"] - real["trivial"]),
          1, "ms");
    const Memory sequence = memory();
    print("resident memory of a console sequence", sequence.resident_kib * 1.024, 200, "kB");
    print("its heap blocks, one for each reading of a directory", sequence.heap_blocks, 2, "");
    print("real time of the console sequence on the simulated board", 1e3 * real["console"], 20,
          "ms");
    print("real time of the net-mode sequence", 1e3 * real["net"], 20, "ms");
    print("real time of a thousand boards with --check", real["many"], 10, "s");
    print("size of q7 for the board, hard float", size_kb(hard + "/q7"), 100, "kB");
    print("size of q7 for the board, soft float", size_kb(soft + "/q7"), 100, "kB");
    print("size of q7-agent, hard float", size_kb(hard + "/q7-agent"), 200, "kB");
    print("size of q7-agent, soft float", size_kb(soft + "/q7-agent"), 200, "kB");
    return kept ? 0 : 1;
}
