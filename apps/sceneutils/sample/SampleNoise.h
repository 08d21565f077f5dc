#pragma once

#include <cmath>
#include <cstdint>

/** Numbers that look random and are the same on every run and machine; the standard library's distributions are not. */
namespace veltrane::sceneutils::tool::sample {

/** The output step of the SplitMix64 generator: every bit of the result depends on every bit of the value. */
inline std::uint64_t scramble(std::uint64_t value) {
    value += 0x9e3779b97f4a7c15u;
    value = (value ^ (value >> 30u)) * 0xbf58476d1ce4e5b9u;
    value = (value ^ (value >> 27u)) * 0x94d049bb133111ebu;
    return value ^ (value >> 31u);
}

/** A seed of its own for part `part` of what `seed` makes. */
inline std::uint64_t seedOf(std::uint64_t seed, std::uint64_t part) {
    return scramble(seed + scramble(part));
}

/** The bits as a number from 0 up to, but not including, 1. */
inline double fractionOf(std::uint64_t bits) {
    constexpr double ulp = 1.0 / 9007199254740992.0;  // 2 to the power of -53: a double's mantissa
    return static_cast<double>(bits >> 11u) * ulp;
}

/** A sequence of choices. */
class Dice {
public:
    explicit Dice(std::uint64_t seed) : _state(seed) {}

    double between(double low, double high) { return low + (high - low) * fractionOf(scramble(++_state)); }
    unsigned below(unsigned limit) { return static_cast<unsigned>(scramble(++_state) % limit); }

private:
    std::uint64_t _state;
};

/** Smooth noise from 0 to 1 with features of about one unit; it repeats every `period` units unless that is 0. */
inline double smoothNoise(std::uint64_t seed, double x, double y, std::int64_t period = 0) {
    const auto corner = [&](std::int64_t column, std::int64_t row) {
        if (period > 0) {
            column %= period;
            row %= period;
        }
        return fractionOf(seedOf(seedOf(seed, static_cast<std::uint64_t>(column)), static_cast<std::uint64_t>(row)));
    };
    const auto ease = [](double t) { return t * t * (3.0 - 2.0 * t); };

    const auto column = static_cast<std::int64_t>(std::floor(x));
    const auto row = static_cast<std::int64_t>(std::floor(y));
    const double across = ease(x - std::floor(x));
    const double up = ease(y - std::floor(y));
    const double south = corner(column, row) * (1.0 - across) + corner(column + 1, row) * across;
    const double north = corner(column, row + 1) * (1.0 - across) + corner(column + 1, row + 1) * across;
    return south * (1.0 - up) + north * up;
}

}  // namespace veltrane::sceneutils::tool::sample
