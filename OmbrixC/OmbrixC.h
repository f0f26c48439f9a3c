#ifndef OMBRIXC_OMBRIX_C_H
#define OMBRIXC_OMBRIX_C_H

/// \file
/// The whole C interface; a program that needs a part includes the headers it uses.

#include "OmbrixC/Day/OmbrixDay.h"
#include "OmbrixC/Day/OmbrixTrack.h"
#include "OmbrixC/Location/OmbrixGeoJSON.h"
#include "OmbrixC/Location/OmbrixHRCSV.h"
#include "OmbrixC/Location/OmbrixLocation.h"
#include "OmbrixC/Location/OmbrixLocationCSV.h"
#include "OmbrixC/Location/OmbrixStreams.h"
#include "OmbrixC/Networking/OmbrixAPIHttpRequestOperation.h"
#include "OmbrixC/Networking/OmbrixServerAPI.h"
#include "OmbrixC/Networking/OmbrixTransfer.h"
#include "OmbrixC/OmbrixAttributedString.h"
#include "OmbrixC/OmbrixDate.h"
#include "OmbrixC/OmbrixError.h"
#include "OmbrixC/OmbrixFileManager.h"
#include "OmbrixC/OmbrixFormatters.h"
#include "OmbrixC/OmbrixLibrary.h"
#include "OmbrixC/OmbrixLoggingService.h"
#include "OmbrixC/OmbrixMath.h"
#include "OmbrixC/OmbrixObservation.h"
#include "OmbrixC/OmbrixOperationQueue.h"
#include "OmbrixC/OmbrixSettings.h"
#include "OmbrixC/OmbrixTypes.h"
#include "OmbrixC/OmbrixUnits.h"
#include "OmbrixC/Stores/OmbrixStores.h"

#endif
