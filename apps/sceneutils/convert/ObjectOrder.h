#pragma once

namespace veltrane::sceneutils::tool {

/**
 * From now on, in this process and those that it forks, an object made by `new` has a higher address than those made
 * before it.
 *
 * OpenSceneGraph's optimiser keeps state sets, geometries and textures in containers that are ordered by address, and
 * writes them in that order. With the system's allocator, what a file is converted to would depend on what the process
 * had allocated and freed before; with this, on the file alone.
 *
 * Memory that is freed goes back to the system, but its addresses are not used again, so this is for a process that
 * does one piece of work and ends. Builds with AddressSanitizer do without, to keep its checks.
 */
void orderObjectsByAge();

/** Whether orderObjectsByAge() has an effect in this build. */
bool canOrderObjectsByAge();

}  // namespace veltrane::sceneutils::tool
