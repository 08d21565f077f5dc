#include <sceneutils/TextureVisitor.h>
