#pragma once

/// \file
/// All of `Ombrix::Tracks`: fixes, geodesy, track files, geometries.

#include "Ombrix/Settings.hpp"
#include "OmbrixCore/Data/CSVParseObserver.hpp"
#include "OmbrixCore/Data/HRCSVParser.hpp"
#include "OmbrixCore/Data/LocationCSVParser.hpp"
#include "OmbrixCore/Data/LocationCSVWriter.hpp"
#include "OmbrixCore/Location/CLLocation.hpp"
#include "OmbrixCore/Location/CLLocationCodableWrapper.hpp"
#include "OmbrixCore/Location/CLLocationCoordinate2D.hpp"
#include "OmbrixCore/Location/GeoJSON.hpp"
