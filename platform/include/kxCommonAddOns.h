// Umbrella header of the geometry add-ons: boxes, the binary bounding-volume
// tree with its builder and triangle container, and the ray-query tree.
#pragma once

#include "kxBBox.h"
#include "kxBVHTriangleContainer.h"
#include "kxGenericBVH.h"
#include "kxLinearGenericBVHBuilder.h"
#include "kxQBVH.h"
