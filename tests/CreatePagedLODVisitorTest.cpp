#include <sceneutils/CreatePagedLODVisitor.h>
