#include <sceneutils/SceneUtils.h>
