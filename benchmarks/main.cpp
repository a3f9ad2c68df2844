// Runs the benchmarks in many short rounds, shuffled, and prints medians and the ratios that count.
// Times mean little on a shared machine, and page faults swing by half: only what ran side by side
// is compared, in processor time, which leaves out what other processes took.

#include <benchmark/benchmark.h>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace {

struct ratio {
    const char *what;
    const char *ours;       // benchmark of the product's routine
    const char *other;      // what it is held against
    double wanted_at_least; // of the speed of the other
};

constexpr ratio RATIOS[] = {
    {"DRAM pass to the bare maps and page faults", "dram_pass_whole", "dram_pass_floor", 0.88},
    {"  the same with a plain check", "dram_pass_plain", "dram_pass_floor", 0},
    {"DRAM check to a plain loop", "dram_check", "dram_check_plain", 10},
    {"DRAM check to memcmp", "dram_check", "dram_check_memcmp", 0.6},
    {"filesystem pass to bare system calls", "filesystem_pass", "filesystem_floor", 0.95},
    {"file copy turn to bare system calls", "file_copy", "file_copy_floor", 0},
};

// Keeps the medians beside printing them.
class median_reporter : public benchmark::ConsoleReporter {
public:
    median_reporter() : ConsoleReporter(OO_Tabular) {}

    void ReportRuns(const std::vector<Run> &runs) override {
        for (const Run &run : runs)
            if (run.run_type == Run::RT_Aggregate && run.aggregate_name == "median")
                medians_[run.run_name.function_name] =
                    run.cpu_accumulated_time / static_cast<double>(run.iterations);
        ConsoleReporter::ReportRuns(runs);
    }

    double seconds(const char *name) const {
        const auto found = medians_.find(name);
        return found == medians_.end() ? 0 : found->second;
    }

private:
    std::map<std::string, double> medians_;
};

void print_ratios(const median_reporter &medians) {
    printf("\n%-46s %8s %10s\n", "Speed, medians", "ratio", "wanted");
    for (const ratio &row : RATIOS) {
        const double ours = medians.seconds(row.ours);
        const double other = medians.seconds(row.other);
        if (ours <= 0 || other <= 0)
            continue; // left out by --benchmark_filter
        printf("%-46s %8.2f", row.what, other / ours);
        if (row.wanted_at_least > 0)
            printf(" %10.2f%s", row.wanted_at_least,
                   other / ours < row.wanted_at_least ? "  missed" : "");
        printf("\n");
    }
}

} // namespace

int main(int argc, char **argv) {
    // Ahead of the command line's own, which win.
    std::vector<std::string> arguments = {
        argv[0], "--benchmark_repetitions=25", "--benchmark_min_time=0.05",
        "--benchmark_enable_random_interleaving=true", "--benchmark_display_aggregates_only=true"};
    arguments.insert(arguments.end(), argv + 1, argv + argc);
    std::vector<char *> pointers;
    for (std::string &argument : arguments)
        pointers.push_back(argument.data());
    int count = static_cast<int>(pointers.size());

    benchmark::Initialize(&count, pointers.data());
    if (benchmark::ReportUnrecognizedArguments(count, pointers.data()))
        return 2;
    median_reporter reporter;
    (void)benchmark::RunSpecifiedBenchmarks(&reporter);
    print_ratios(reporter);
    return 0;
}
