// The handlers of the palettes and data exchange subsystem.
#pragma once

#include "exchange/binary_string.h"
#include "exchange/handles.h"
#include "exchange/memoryblock.h"
#include "exchange/palette.h"
