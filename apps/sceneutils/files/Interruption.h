#pragma once

namespace veltrane::sceneutils::tool {

/**
 * Makes a signal to end (interrupt, termination, hang-up) end the tool, and the process that it waits for, with the
 * status Interrupted, one line on standard error and no half-written file. A write beyond the limit on file sizes fails
 * instead of ending the tool.
 */
void endCleanlyOnSignals();

/**
 * Makes a lack of memory end the tool, and the process that it waits for, with the status OutputNotWritten, one line on
 * standard error and no half-written file. Who tried to go on would soon need more memory, if only to say what is
 * wrong.
 */
void endCleanlyWithoutMemory();

}  // namespace veltrane::sceneutils::tool
