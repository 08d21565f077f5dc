#include <sceneutils/StateSetVisitor.h>
