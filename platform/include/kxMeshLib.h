// Umbrella header of the mesh library: mesh processing (welding, normal
// smoothing, connected components), vertex buffers turned into displayable
// geometry, and mesh files.
#pragma once

#include "kxDataToGeometry.h"
#include "kxMeshManager.h"
#include "kxMeshProcessing.h"
