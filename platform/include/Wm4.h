// Umbrella header of the Wm4 foundation types the library computes with.
#pragma once

#include "Wm4Math.h"
#include "Wm4Vector2.h"
#include "Wm4Vector3.h"
#include "Wm4Matrix3.h"
#include "Wm4ColorRGB.h"
#include "Wm4Eigen.h"
#include "Wm4DistTriangle3Triangle3.h"
