#pragma once

/** Marks what the shared library offers to its users; everything else stays hidden. */
#if defined(_WIN32)
#if defined(SCENEUTILS_BUILDING_LIBRARY)
#define SCENEUTILS_EXPORT __declspec(dllexport)
#else
#define SCENEUTILS_EXPORT __declspec(dllimport)
#endif
#else
#define SCENEUTILS_EXPORT __attribute__((visibility("default")))
#endif
