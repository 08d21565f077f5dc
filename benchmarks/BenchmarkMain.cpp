#include <benchmark/benchmark.h>

#include <string>
#include <vector>

namespace {

/** As the other benchmarks do, this one takes "--csv FILE". */
std::vector<std::string> translate(int argc, char** argv) {
    std::vector<std::string> arguments(argv, argv + argc);
    for (std::size_t i = 1; i + 1 < arguments.size(); ++i) {
        if (arguments[i] != "--csv") continue;
        arguments[i] = "--benchmark_out=" + arguments[i + 1];
        arguments[i + 1] = "--benchmark_out_format=csv";
    }
    return arguments;
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<std::string> arguments = translate(argc, argv);
    std::vector<char*> pointers;
    for (std::string& argument : arguments) pointers.push_back(argument.data());
    int count = static_cast<int>(pointers.size());
    benchmark::Initialize(&count, pointers.data());
    if (benchmark::ReportUnrecognizedArguments(count, pointers.data())) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
