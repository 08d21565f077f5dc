#pragma once

namespace veltrane::sceneutils::tool {

/**
 * Makes a signal to end (interrupt, termination, hang-up) end the tool, and the process that it waits for, with the
 * status Interrupted, one line on standard error and no half-written file. A write beyond the limit on file sizes fails
 * instead of ending the tool.
 */
void endCleanlyOnSignals();

}  // namespace veltrane::sceneutils::tool
