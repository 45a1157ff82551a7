// Umbrella header of the scene graph: reference counting, transformations,
// vertex and index buffers, spatials, nodes, triangle meshes and controllers.
#pragma once

#include "kxController.h"
#include "kxGenericTransformation.h"
#include "kxKeyframeController.h"
#include "kxObject.h"
#include "kxSpatial.h"
#include "kxTSharedArray.h"
#include "kxTriMesh.h"
#include "kxVertexBuffer.h"
