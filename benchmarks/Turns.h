#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace veltrane::sceneutils::benchmarks {

/** What is measured for one row of a table. */
struct Contender {
    std::vector<std::string> labels;
    std::function<std::vector<double>()> measure;  ///< the same numbers each time
    std::size_t rival = 0;                         ///< the place of the one that it is compared with
    std::vector<std::vector<double>> rounds;       ///< what was measured
};

/** What is made of the numbers of one round. */
using Quantity = std::function<double(const std::vector<double>&)>;

/** Measures all of them, one after the other, each round begun by another one. The rounds are told on std::cerr. */
void measureInTurns(std::vector<Contender>& contenders, int rounds);

/** The median over the rounds. */
double medianOf(const Contender& contender, const Quantity& quantity);

/** The median over the rounds of the quantity against the rival's in the same round. */
double ratioOf(const std::vector<Contender>& contenders, const Contender& contender, const Quantity& quantity);

}  // namespace veltrane::sceneutils::benchmarks
