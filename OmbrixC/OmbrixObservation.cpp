#include "OmbrixC/OmbrixObservation.h"

#include "OmbrixC/Detail/Observation.hpp"

void ombrix_Observation_release(OmbrixObservation* observation) { delete observation; }
