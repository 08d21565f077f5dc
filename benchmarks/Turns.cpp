#include "Turns.h"

#include "Median.h"

#include <iostream>

namespace veltrane::sceneutils::benchmarks {

void measureInTurns(std::vector<Contender>& contenders, int rounds) {
    for (int round = 0; round < rounds; ++round) {
        std::cerr << "Round " << round + 1 << " of " << rounds << "\n";
        for (std::size_t i = 0; i < contenders.size(); ++i) {
            Contender& next = contenders[(i + static_cast<std::size_t>(round)) % contenders.size()];
            next.rounds.push_back(next.measure());
        }
    }
}

double medianOf(const Contender& contender, const Quantity& quantity) {
    std::vector<double> numbers;
    for (const std::vector<double>& round : contender.rounds) numbers.push_back(quantity(round));
    return medianOf(numbers);
}

double ratioOf(const std::vector<Contender>& contenders, const Contender& contender, const Quantity& quantity) {
    const Contender& rival = contenders[contender.rival];
    std::vector<double> ratios;
    for (std::size_t round = 0; round < contender.rounds.size(); ++round)
        ratios.push_back(quantity(contender.rounds[round]) / quantity(rival.rounds[round]));
    return medianOf(ratios);
}

}  // namespace veltrane::sceneutils::benchmarks
