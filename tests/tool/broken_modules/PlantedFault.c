/* All that differs from one broken module to the next: HARVANE_FAULT is the fault's name. */

#include "tests/tool/broken_modules/PlantedFault.h"

const enum Fault kPlantedFault = HARVANE_FAULT;
