#pragma once

// The interface lives with the idle rules that read it, in the core; the backends here implement it.
#include "attention/idlesource.h"
