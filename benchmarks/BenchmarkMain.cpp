#include "Table.h"

#include <benchmark/benchmark.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

using benchmark::BenchmarkReporter;
using veltrane::sceneutils::benchmarks::showTables;
using veltrane::sceneutils::benchmarks::Table;

namespace {

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

/** Makes a row of all runs of a benchmark at one size, which are reported together. */
class RowReporter : public BenchmarkReporter {
public:
    bool ReportContext(const Context&) override { return true; }

    void ReportRuns(const std::vector<Run>& runs) override {
        std::vector<double> times, rates;
        for (const Run& run : runs) {
            if (run.run_type != Run::RT_Iteration || run.error_occurred) continue;
            times.push_back(run.GetAdjustedCPUTime());
            rates.push_back(run.counters.at("items_per_second").value);
        }
        if (!times.empty()) addRow(runs.front().run_name, median(times), median(rates));
    }

    const Table& table() const { return _table; }

private:
    /** Sizes have a name: the argument is "geodes:100". */
    void addRow(const benchmark::BenchmarkName& name, double microseconds, double itemsPerSecond) {
        const std::string::size_type colon = name.args.find(':');
        _table.row().cell(name.function_name).cell(name.args.substr(colon + 1)).cell(name.args.substr(0, colon));
        _table.cell(microseconds, 3).cell(itemsPerSecond / 1e6, 2);
        if (name.function_name == _former) {
            _table.cell(microseconds / _formerMicroseconds, 1);
        } else {
            _table.cell("");
        }
        _former = name.function_name;
        _formerMicroseconds = microseconds;
    }

    Table _table{{"benchmark", "size", "of", "us", "million_per_s", "growth"}};
    std::string _former;
    double _formerMicroseconds = 0.0;
};

void run(const std::string& program, std::vector<std::string> options, const std::string& csv) {
    std::vector<char*> pointers;
    options.insert(options.begin(), program);
    for (std::string& option : options) pointers.push_back(option.data());
    int count = static_cast<int>(pointers.size());
    benchmark::Initialize(&count, pointers.data());
    if (benchmark::ReportUnrecognizedArguments(count, pointers.data())) throw std::runtime_error("see --help");
    RowReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    showTables({{"", reporter.table()}}, csv);
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app("Times walks over graphs. Takes options of Google Benchmark too, such as --benchmark_filter=REGEX.");
    int repeats = 3;
    std::string csv;
    app.add_option("--repeats", repeats, "Rounds, of which the medians are shown")
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
    app.add_option("--csv", csv, "Also write the table to this file");
    app.allow_extras();
    CLI11_PARSE(app, argc, argv);

    try {
        std::vector<std::string> options = app.remaining();
        options.push_back("--benchmark_repetitions=" + std::to_string(repeats));
        run(argv[0], options, csv);
    } catch (const std::exception& error) {
        std::cerr << argv[0] << ": " << error.what() << "\n";
        return 1;
    }
    return 0;
}
