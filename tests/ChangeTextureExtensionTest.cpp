#include <sceneutils/ChangeTextureExtension.h>
