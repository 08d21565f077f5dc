#pragma once

#include <array>
#include <cstddef>

namespace veltrane::sceneutils::benchmarks {

/** The parts of a conversion that are timed; what is in none of them is the rest. */
enum class Step : std::size_t { Planning, Reading, Optimizing, Smoothing, Shading, Filtering, Writing };

constexpr std::array<const char*, 7> stepNames = {"planning", "reading",   "optimizing", "smoothing",
                                                  "shading",  "filtering", "writing"};

/** Processor time by step, in seconds. */
using StepTimes = std::array<double, stepNames.size()>;

/** Processor time that this thread has used so far, in seconds. */
double processorTime();

/**
 * From now on this process and its children add up what they spend in the steps, without a change to the code that is
 * measured:
 * - Reading and writing are timed around the osgDB plug-ins for .flt and .ive, which are loaded here.
 * - osgUtil::Optimizer::optimize() and ShaderGenerator::process() are timed by functions of the same name in this
 *   program, which the dynamic linker finds before those in the libraries, and which call them.
 * - Smoothing is what happens between the first optimisation and the shaders, filtering what happens between the
 *   shaders and the last optimisation: the library does nothing else there.
 * Planning is for the conversion itself to tell, with a ScopedStep.
 */
void startStepClock();

/** What has been added up since startStepClock(). */
StepTimes stepTimes();

/** Adds what passes in a scope to a step. */
class ScopedStep {
public:
    explicit ScopedStep(Step step) : _step(step), _start(processorTime()) {}
    ~ScopedStep();
    ScopedStep(const ScopedStep&) = delete;
    ScopedStep& operator=(const ScopedStep&) = delete;

private:
    Step _step;
    double _start;
};

}  // namespace veltrane::sceneutils::benchmarks
