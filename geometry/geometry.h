// The geometry subsystem's handlers: right-angle turns and mirrors, rotation
// by any angle, scaling, scrolling.
#pragma once

#include "geometry/rotate.h"
#include "geometry/scale.h"
#include "geometry/scroll.h"
#include "geometry/turns.h"
