#include <sceneutils/ForceTextureFilter.h>
