#include <sceneutils/ShaderGenerator.h>
