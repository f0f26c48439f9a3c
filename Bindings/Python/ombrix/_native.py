"""The C interface as ctypes sees it. Made by scripts/c-interface; not edited."""

import ctypes as C
import enum


class OmbrixSegmentKind(enum.IntEnum):
    RUN = 0
    LIFT = 1
    PAUSE = 2
    WALK = 3


class OmbrixSegmentFigures(C.Structure):
    _fields_ = [
        ("seconds", C.c_double),
        ("movingSeconds", C.c_double),
        ("distance", C.c_double),
        ("ascent", C.c_double),
        ("descent", C.c_double),
        ("maxSpeed", C.c_double),
        ("averageSpeed", C.c_double),
        ("heartRates", C.c_size_t),
        ("averageHeartRate", C.c_double),
        ("maxHeartRate", C.c_double),
    ]


class OmbrixDaySegment(C.Structure):
    _fields_ = [
        ("kind", C.c_int),
        ("number", C.c_int),
        ("begin", C.c_double),
        ("end", C.c_double),
        ("firstSample", C.c_size_t),
        ("endSample", C.c_size_t),
        ("beginAltitude", C.c_double),
        ("endAltitude", C.c_double),
        ("slopeDegrees", C.c_double),
        ("figures", OmbrixSegmentFigures),
    ]


class OmbrixDayTotals(C.Structure):
    _fields_ = [
        ("begin", C.c_double),
        ("end", C.c_double),
        ("fixesRead", C.c_size_t),
        ("fixesUsed", C.c_size_t),
        ("runs", C.c_size_t),
        ("lifts", C.c_size_t),
        ("minAltitude", C.c_double),
        ("maxAltitude", C.c_double),
        ("all", OmbrixSegmentFigures),
        ("run", OmbrixSegmentFigures),
        ("lift", OmbrixSegmentFigures),
        ("pause", OmbrixSegmentFigures),
        ("walk", OmbrixSegmentFigures),
    ]


class OmbrixTrackFormat(enum.IntEnum):
    CSV = 0
    GPX = 1
    TCX = 2
    GEO_JSON = 3
    FIT = 4


class OmbrixHeartRate(C.Structure):
    _fields_ = [
        ("time", C.c_double),
        ("beatsPerMinute", C.c_double),
    ]


class OmbrixLapTrigger(enum.IntEnum):
    MANUAL = 0
    DISTANCE = 1
    LOCATION = 2
    TIME = 3
    HEART_RATE = 4


class OmbrixLap(C.Structure):
    _fields_ = [
        ("begin", C.c_double),
        ("seconds", C.c_double),
        ("distanceMeters", C.c_double),
        ("kilocalories", C.c_double),
        ("averageSpeed", C.c_double),
        ("maxSpeed", C.c_double),
        ("averageHeartRate", C.c_double),
        ("maxHeartRate", C.c_double),
        ("averageCadence", C.c_double),
        ("maxCadence", C.c_double),
        ("averagePower", C.c_double),
        ("maxPower", C.c_double),
        ("isRest", C.c_bool),
        ("trigger", C.c_int),
        ("notes", C.c_char_p),
    ]


class OmbrixGeoJSONKind(enum.IntEnum):
    POLYGON = 0
    LINE_STRING = 1
    POINT = 2


class OmbrixHeartRateSample(C.Structure):
    _fields_ = [
        ("countPerMinute", C.c_double),
        ("startDate", C.c_double),
        ("endDate", C.c_double),
    ]


class OmbrixHeartRateSamples(C.Structure):
    _fields_ = [
        ("samples", C.POINTER(OmbrixHeartRateSample)),
        ("count", C.c_size_t),
    ]


OmbrixHeartRateSamplesCompletion = C.CFUNCTYPE(None, OmbrixHeartRateSamples, C.c_void_p)


class OmbrixCoordinate(C.Structure):
    _fields_ = [
        ("latitude", C.c_double),
        ("longitude", C.c_double),
    ]


class OmbrixDaySample(C.Structure):
    _fields_ = [
        ("time", C.c_double),
        ("coordinate", OmbrixCoordinate),
        ("altitude", C.c_double),
        ("steadyAltitude", C.c_double),
        ("speed", C.c_double),
        ("heartRate", C.c_double),
        ("distance", C.c_double),
    ]


class OmbrixLocation(C.Structure):
    _fields_ = [
        ("coordinate", OmbrixCoordinate),
        ("altitude", C.c_double),
        ("horizontalAccuracy", C.c_double),
        ("verticalAccuracy", C.c_double),
        ("course", C.c_double),
        ("courseAccuracy", C.c_double),
        ("speed", C.c_double),
        ("speedAccuracy", C.c_double),
        ("timestamp", C.c_double),
    ]


class OmbrixLocations(C.Structure):
    _fields_ = [
        ("locations", C.POINTER(OmbrixLocation)),
        ("count", C.c_size_t),
    ]


OmbrixLocationsCompletion = C.CFUNCTYPE(None, OmbrixLocations, C.c_void_p)


class OmbrixInputStream(C.Structure):
    _fields_ = [
        ("context", C.c_void_p),
        ("read", C.CFUNCTYPE(C.c_ssize_t, C.c_void_p, C.POINTER(C.c_uint8), C.c_size_t)),
    ]


class OmbrixOutputStream(C.Structure):
    _fields_ = [
        ("context", C.c_void_p),
        ("write", C.CFUNCTYPE(C.c_bool, C.c_void_p, C.POINTER(C.c_uint8), C.c_size_t)),
    ]


class OmbrixPayload(C.Structure):
    _fields_ = [
        ("bytes", C.POINTER(C.c_uint8)),
        ("length", C.c_size_t),
    ]


OmbrixRequestCallback = C.CFUNCTYPE(None, C.c_bool, C.c_int, C.POINTER(C.c_uint8), C.c_size_t, C.c_void_p)


class OmbrixAPIEndpoint(enum.IntEnum):
    PRODUCTION = 0
    STAGING = 1
    DEVELOPMENT = 2


OmbrixServerAPIHandler = C.CFUNCTYPE(None, C.c_void_p)


OmbrixServerAPICompletion = C.CFUNCTYPE(None, C.c_bool, C.c_int, C.POINTER(C.c_uint8), C.c_size_t, C.c_void_p, C.c_void_p)


OmbrixTransferProgress = C.CFUNCTYPE(None, C.c_int64, C.c_int64, C.c_int64, C.c_int64, C.c_void_p)


class OmbrixRetryPolicy(C.Structure):
    _fields_ = [
        ("maximumAttempts", C.c_int),
        ("firstDelay", C.c_double),
        ("longestDelay", C.c_double),
        ("longestRetryAfter", C.c_double),
        ("totalTime", C.c_double),
        ("budget", C.c_double),
    ]


class OmbrixFont(C.Structure):
    _fields_ = [
        ("name", C.c_char_p),
        ("isBold", C.c_bool),
        ("isItalic", C.c_bool),
        ("pointSize", C.c_double),
    ]


class OmbrixColor(C.Structure):
    _fields_ = [
        ("red", C.c_double),
        ("green", C.c_double),
        ("blue", C.c_double),
        ("alpha", C.c_double),
    ]


class OmbrixAttributes(C.Structure):
    _fields_ = [
        ("font", C.POINTER(OmbrixFont)),
        ("foregroundColor", C.POINTER(OmbrixColor)),
        ("secondaryFont", C.POINTER(OmbrixFont)),
        ("secondaryForegroundColor", C.POINTER(OmbrixColor)),
    ]


class OmbrixAttributedRun(C.Structure):
    _fields_ = [
        ("location", C.c_size_t),
        ("length", C.c_size_t),
        ("font", C.POINTER(OmbrixFont)),
        ("foregroundColor", C.POINTER(OmbrixColor)),
        ("utf8Location", C.c_size_t),
        ("utf8Length", C.c_size_t),
    ]


class OmbrixCalendarUnit(enum.IntEnum):
    DAY = 16
    HOUR = 32
    MINUTE = 64
    SECOND = 128


class OmbrixDateComponents(C.Structure):
    _fields_ = [
        ("day", C.c_int64),
        ("hour", C.c_int64),
        ("minute", C.c_int64),
        ("second", C.c_int64),
    ]


class OmbrixObjectKind(enum.IntEnum):
    NONE = 0
    NUMBER = 1
    TEXT = 2
    MEASUREMENT = 3
    DATE_COMPONENTS = 4


class OmbrixObjectValue(C.Structure):
    _fields_ = [
        ("kind", C.c_int),
        ("number", C.c_double),
        ("text", C.c_char_p),
        ("unit", C.c_int),
        ("components", OmbrixDateComponents),
    ]


class OmbrixMeasurementUnitStyle(enum.IntEnum):
    VALUE_ONLY = 0
    SHORT = 1
    MEDIUM = 2
    LONG = 3


class OmbrixMeasurementFormat(enum.IntEnum):
    SPEED = 0
    DISTANCE = 1
    ALTITUDE = 2
    VERTICAL = 3
    ALTITUDE_CHANGE = 4
    TOTAL_VERTICAL = 5
    SEASON_VERTICAL = 6
    DAILY_VERTICAL = 7
    WEIGHT = 8
    ENERGY = 9
    HEART_RATE = 10
    DEPTH = 11
    TEMPERATURE = 12
    ANGLE = 13


class OmbrixLogger(C.Structure):
    _fields_ = [
        ("context", C.c_void_p),
        ("log", C.CFUNCTYPE(None, C.c_void_p, C.c_uint32, C.c_char_p)),
        ("flush", C.CFUNCTYPE(None, C.c_void_p)),
    ]


OmbrixObserver = C.CFUNCTYPE(None, C.c_char_p, C.c_bool, C.c_void_p)


class OmbrixOperationState(enum.IntEnum):
    READY = 0
    EXECUTING = 1
    FINISHED = 2


OmbrixOperationBlock = C.CFUNCTYPE(None, C.c_void_p)


class OmbrixValueKind(enum.IntEnum):
    NONE = 0
    BOOLEAN = 1
    INTEGER = 2
    REAL = 3
    STRING = 4
    PROPERTY_LIST = 5


class OmbrixBytes(C.Structure):
    _fields_ = [
        ("bytes", C.POINTER(C.c_uint8)),
        ("length", C.c_size_t),
    ]


class OmbrixValue(C.Structure):
    _fields_ = [
        ("kind", C.c_int),
        ("words", C.c_uint64 * 2),
    ]


class OmbrixData(C.Structure):
    _fields_ = [
        ("bytes", C.POINTER(C.c_uint8)),
        ("length", C.c_size_t),
    ]


class OmbrixUnit(enum.IntEnum):
    KILOMETERS = 0
    METERS = 1
    CENTIMETERS = 2
    MILLIMETERS = 3
    MILES = 4
    YARDS = 5
    FEET = 6
    INCHES = 7
    METERS_PER_SECOND = 8
    KILOMETERS_PER_HOUR = 9
    MILES_PER_HOUR = 10
    KNOTS = 11
    KILOGRAMS = 12
    GRAMS = 13
    POUNDS = 14
    OUNCES = 15
    STONES = 16
    KELVIN = 17
    CELSIUS = 18
    FAHRENHEIT = 19
    KILOJOULES = 20
    JOULES = 21
    KILOCALORIES = 22
    CALORIES = 23
    KILOWATT_HOURS = 24
    HERTZ = 25
    KILOHERTZ = 26
    MEGAHERTZ = 27
    GIGAHERTZ = 28
    BEATS_PER_MINUTE = 29
    DEGREES = 30
    ARC_MINUTES = 31
    ARC_SECONDS = 32
    RADIANS = 33
    REVOLUTIONS = 34


class OmbrixSkiMeasurement(enum.IntEnum):
    DISTANCE = 0
    ALTITUDE = 1
    VERTICAL = 2
    ALTITUDE_CHANGE = 3
    TOTAL_VERTICAL = 4
    SEASON_VERTICAL = 5
    DAILY_VERTICAL = 6
    DEPTH = 7


OmbrixKeyVisitor = C.CFUNCTYPE(None, C.c_char_p, C.c_void_p)


# What a function takes and gives; texts and blocks that are given away are pointers.
FUNCTIONS = {
    "ombrix_APIHttpRequestOperation_attempt": (C.c_int, [C.c_void_p]),
    "ombrix_APIHttpRequestOperation_cacheOnly": (C.c_bool, [C.c_void_p]),
    "ombrix_APIHttpRequestOperation_cancel": (None, [C.c_void_p]),
    "ombrix_APIHttpRequestOperation_disableCashe": (C.c_bool, [C.c_void_p]),
    "ombrix_APIHttpRequestOperation_initWithUrl_method_headers_callback_": (C.c_void_p, [C.c_char_p, C.c_char_p, C.POINTER(C.c_char_p), C.c_size_t, OmbrixRequestCallback, C.c_void_p]),
    "ombrix_APIHttpRequestOperation_isCancelled": (C.c_bool, [C.c_void_p]),
    "ombrix_APIHttpRequestOperation_safeForLowData": (C.c_bool, [C.c_void_p]),
    "ombrix_APIHttpRequestOperation_setAttempt_": (None, [C.c_void_p, C.c_int]),
    "ombrix_APIHttpRequestOperation_setCacheOnly_": (None, [C.c_void_p, C.c_bool]),
    "ombrix_APIHttpRequestOperation_setDisableCashe_": (None, [C.c_void_p, C.c_bool]),
    "ombrix_APIHttpRequestOperation_setPayload_": (None, [C.c_void_p, OmbrixPayload]),
    "ombrix_APIHttpRequestOperation_setSafeForLowData_": (None, [C.c_void_p, C.c_bool]),
    "ombrix_APIHttpRequestOperation_setUsesAuth_": (None, [C.c_void_p, C.c_bool]),
    "ombrix_APIHttpRequestOperation_state": (C.c_int, [C.c_void_p]),
    "ombrix_APIHttpRequestOperation_taskID": (C.c_void_p, [C.c_void_p]),
    "ombrix_APIHttpRequestOperation_usesAuth": (C.c_bool, [C.c_void_p]),
    "ombrix_Bundle_build": (C.c_void_p, []),
    "ombrix_Bundle_version": (C.c_void_p, []),
    "ombrix_CLLocation_OCKLocationMinHorizontalAccuracyForStats": (C.c_double, []),
    "ombrix_CLLocation_OCKLocationMinVerticalAccuracyForStats": (C.c_double, []),
    "ombrix_CLLocation_courseFromLocation_": (C.c_double, [C.POINTER(OmbrixLocation), C.POINTER(OmbrixLocation)]),
    "ombrix_CLLocation_courseToLocation_": (C.c_double, [C.POINTER(OmbrixLocation), C.POINTER(OmbrixLocation)]),
    "ombrix_CLLocation_distanceFromLocation_": (C.c_double, [C.POINTER(OmbrixLocation), C.POINTER(OmbrixLocation)]),
    "ombrix_CLLocation_hash": (C.c_size_t, [C.POINTER(OmbrixLocation)]),
    "ombrix_CLLocation_horizontalSpeedComingFromLocation_": (C.c_double, [C.POINTER(OmbrixLocation), C.POINTER(OmbrixLocation)]),
    "ombrix_CLLocation_isAccurateForStats": (C.c_bool, [C.POINTER(OmbrixLocation)]),
    "ombrix_CLLocation_isEqual_": (C.c_bool, [C.POINTER(OmbrixLocation), C.POINTER(OmbrixLocation)]),
    "ombrix_CLLocation_isEqualToLocation_": (C.c_bool, [C.POINTER(OmbrixLocation), C.POINTER(OmbrixLocation)]),
    "ombrix_CLLocation_metersToDegreesForLatAtLon_": (C.c_double, [C.c_double]),
    "ombrix_CLLocation_metersToDegreesForLonAtLat_": (C.c_double, [C.c_double]),
    "ombrix_CLLocation_moveWithCourse_distance_": (OmbrixLocation, [C.POINTER(OmbrixLocation), C.c_double, C.c_double]),
    "ombrix_CLLocation_moveWithCourse_speed_duration_": (OmbrixLocation, [C.POINTER(OmbrixLocation), C.c_double, C.c_double, C.c_double]),
    "ombrix_CLLocation_newWithSpeed_": (OmbrixLocation, [C.POINTER(OmbrixLocation), C.c_double]),
    "ombrix_CLLocation_setOCKLocationMinHorizontalAccuracyForStats_": (None, [C.c_double]),
    "ombrix_CLLocation_setOCKLocationMinVerticalAccuracyForStats_": (None, [C.c_double]),
    "ombrix_CLLocation_speedByAddingHorizontalComponent_": (C.c_double, [C.POINTER(OmbrixLocation), C.c_double]),
    "ombrix_CLLocation_speedByAddingVerticalComponent_": (C.c_double, [C.POINTER(OmbrixLocation), C.c_double]),
    "ombrix_CLLocation_speedComingFromLocation_": (C.c_double, [C.POINTER(OmbrixLocation), C.POINTER(OmbrixLocation)]),
    "ombrix_CLLocation_speedWithHorizontalComponent_andVerticalComponent_": (C.c_double, [C.c_double, C.c_double]),
    "ombrix_CLLocation_verticalSpeedComingFromLocation_": (C.c_double, [C.POINTER(OmbrixLocation), C.POINTER(OmbrixLocation)]),
    "ombrix_DateFormatter_dateFromString_error_": (C.c_bool, [C.c_void_p, C.c_char_p, C.POINTER(C.c_double), C.POINTER(C.c_void_p)]),
    "ombrix_DateFormatter_initWithDateFormat_locale_timeZone_": (C.c_void_p, [C.c_char_p, C.c_char_p, C.c_char_p]),
    "ombrix_DateFormatter_stringFromDate_": (C.c_void_p, [C.c_void_p, C.c_double]),
    "ombrix_Day_initWithLocations_count_heartRates_count_": (C.c_void_p, [C.POINTER(OmbrixLocation), C.c_size_t, C.POINTER(OmbrixHeartRate), C.c_size_t]),
    "ombrix_Day_initWithTrack_": (C.c_void_p, [C.c_void_p]),
    "ombrix_Day_samples": (C.POINTER(OmbrixDaySample), [C.c_void_p]),
    "ombrix_Day_segments": (C.POINTER(OmbrixDaySegment), [C.c_void_p]),
    "ombrix_Day_totals": (OmbrixDayTotals, [C.c_void_p]),
    "ombrix_DurationFormatter_attributedStringForObjectValue_withDefaultAttributes_": (C.c_void_p, [C.c_void_p, C.POINTER(OmbrixObjectValue), C.POINTER(OmbrixAttributes)]),
    "ombrix_DurationFormatter_attributedStringForObjectValue_withValueAttributes_unitLabelAttributes_": (C.c_void_p, [C.c_void_p, C.POINTER(OmbrixObjectValue), C.POINTER(OmbrixAttributes), C.POINTER(OmbrixAttributes)]),
    "ombrix_DurationFormatter_distinctMinVsMeters": (C.c_bool, [C.c_void_p]),
    "ombrix_DurationFormatter_init": (C.c_void_p, []),
    "ombrix_DurationFormatter_initWithCoder_": (C.c_void_p, [C.c_void_p]),
    "ombrix_DurationFormatter_initWithMinimumComponent_": (C.c_void_p, [C.c_int]),
    "ombrix_DurationFormatter_setLocale_": (None, [C.c_void_p, C.c_char_p]),
    "ombrix_DurationFormatter_stringForObjectValue_": (C.c_void_p, [C.c_void_p, C.POINTER(OmbrixObjectValue)]),
    "ombrix_FileManager_OmbrixGroupName": (C.c_void_p, []),
    "ombrix_FileManager_allocatedSizeAt_error_": (C.c_bool, [C.c_char_p, C.POINTER(C.c_uint64), C.POINTER(C.c_void_p)]),
    "ombrix_FileManager_applicationSupport": (C.c_void_p, []),
    "ombrix_FileManager_cache": (C.c_void_p, []),
    "ombrix_FileManager_documents": (C.c_void_p, []),
    "ombrix_FileManager_groupContainer": (C.c_void_p, []),
    "ombrix_FileManager_groupContainerApplicationSupport": (C.c_void_p, []),
    "ombrix_FileManager_groupContainerCache": (C.c_void_p, []),
    "ombrix_FileManager_library": (C.c_void_p, []),
    "ombrix_FileManager_temporary": (C.c_void_p, []),
    "ombrix_FileManager_touchWithUrl_": (None, [C.c_char_p]),
    "ombrix_FileStore_exists": (C.c_bool, [C.c_void_p]),
    "ombrix_FileStore_initWithUrl_error_": (C.c_void_p, [C.c_char_p, C.POINTER(C.c_void_p)]),
    "ombrix_FileStore_purge": (None, [C.c_void_p]),
    "ombrix_FileStore_setValue_length_": (None, [C.c_void_p, C.POINTER(C.c_uint8), C.c_size_t]),
    "ombrix_FileStore_size": (C.c_uint64, [C.c_void_p]),
    "ombrix_FileStore_value": (OmbrixData, [C.c_void_p]),
    "ombrix_GeoJSON_coordinateCountOfPart_": (C.c_size_t, [C.c_void_p, C.c_size_t]),
    "ombrix_GeoJSON_coordinatesOfPart_": (C.POINTER(OmbrixCoordinate), [C.c_void_p, C.c_size_t]),
    "ombrix_GeoJSON_data_error_": (OmbrixData, [C.c_void_p, C.POINTER(C.c_void_p)]),
    "ombrix_GeoJSON_initWithData_length_error_": (C.c_void_p, [C.POINTER(C.c_uint8), C.c_size_t, C.POINTER(C.c_void_p)]),
    "ombrix_GeoJSON_initWithKind_coordinates_counts_parts_error_": (C.c_void_p, [C.c_int, C.POINTER(OmbrixCoordinate), C.POINTER(C.c_size_t), C.c_size_t, C.POINTER(C.c_void_p)]),
    "ombrix_GeoJSON_kind": (C.c_int, [C.c_void_p]),
    "ombrix_HRCSVParser_init": (C.c_void_p, []),
    "ombrix_HRCSVParser_parseWithData_": (OmbrixHeartRateSamples, [C.c_void_p, C.POINTER(C.c_uint8), C.c_size_t]),
    "ombrix_HRCSVParser_parseWithData_completion_": (None, [C.c_void_p, C.POINTER(C.c_uint8), C.c_size_t, OmbrixHeartRateSamplesCompletion, C.c_void_p]),
    "ombrix_HRCSVParser_parseWithStream_": (OmbrixHeartRateSamples, [C.c_void_p, OmbrixInputStream]),
    "ombrix_HRCSVParser_parseWithStream_completion_": (None, [C.c_void_p, OmbrixInputStream, OmbrixHeartRateSamplesCompletion, C.c_void_p]),
    "ombrix_HRCSVParser_parseWithString_": (OmbrixHeartRateSamples, [C.c_void_p, C.c_char_p]),
    "ombrix_HRCSVParser_parseWithString_completion_": (None, [C.c_void_p, C.c_char_p, OmbrixHeartRateSamplesCompletion, C.c_void_p]),
    "ombrix_HRCSVParser_parseWithUrl_": (OmbrixHeartRateSamples, [C.c_void_p, C.c_char_p]),
    "ombrix_HRCSVParser_parseWithUrl_completion_": (None, [C.c_void_p, C.c_char_p, OmbrixHeartRateSamplesCompletion, C.c_void_p]),
    "ombrix_KeyedStore_ageForKey_": (C.c_double, [C.c_void_p, C.c_char_p]),
    "ombrix_KeyedStore_existsForKey_": (C.c_bool, [C.c_void_p, C.c_char_p]),
    "ombrix_KeyedStore_initWithUrl_fileExtension_error_": (C.c_void_p, [C.c_char_p, C.c_char_p, C.POINTER(C.c_void_p)]),
    "ombrix_KeyedStore_purge": (None, [C.c_void_p]),
    "ombrix_KeyedStore_purgeForKey_": (None, [C.c_void_p, C.c_char_p]),
    "ombrix_KeyedStore_size": (C.c_uint64, [C.c_void_p]),
    "ombrix_KeyedStore_storeValue_length_forKey_": (None, [C.c_void_p, C.POINTER(C.c_uint8), C.c_size_t, C.c_char_p]),
    "ombrix_KeyedStore_valueForKey_": (OmbrixData, [C.c_void_p, C.c_char_p]),
    "ombrix_KeyedStore_visitKeys_context_": (None, [C.c_void_p, OmbrixKeyVisitor, C.c_void_p]),
    "ombrix_LocationCSVParser_init": (C.c_void_p, []),
    "ombrix_LocationCSVParser_parseWithData_": (OmbrixLocations, [C.c_void_p, C.POINTER(C.c_uint8), C.c_size_t]),
    "ombrix_LocationCSVParser_parseWithData_completion_": (None, [C.c_void_p, C.POINTER(C.c_uint8), C.c_size_t, OmbrixLocationsCompletion, C.c_void_p]),
    "ombrix_LocationCSVParser_parseWithStream_": (OmbrixLocations, [C.c_void_p, OmbrixInputStream]),
    "ombrix_LocationCSVParser_parseWithStream_completion_": (None, [C.c_void_p, OmbrixInputStream, OmbrixLocationsCompletion, C.c_void_p]),
    "ombrix_LocationCSVParser_parseWithString_": (OmbrixLocations, [C.c_void_p, C.c_char_p]),
    "ombrix_LocationCSVParser_parseWithString_completion_": (None, [C.c_void_p, C.c_char_p, OmbrixLocationsCompletion, C.c_void_p]),
    "ombrix_LocationCSVParser_parseWithUrl_": (OmbrixLocations, [C.c_void_p, C.c_char_p]),
    "ombrix_LocationCSVParser_parseWithUrl_completion_": (None, [C.c_void_p, C.c_char_p, OmbrixLocationsCompletion, C.c_void_p]),
    "ombrix_LocationCSVWriter_addLocation_error_": (C.c_bool, [C.c_void_p, C.POINTER(OmbrixLocation), C.POINTER(C.c_void_p)]),
    "ombrix_LocationCSVWriter_addLocations_error_": (C.c_bool, [C.c_void_p, C.POINTER(OmbrixLocation), C.c_size_t, C.POINTER(C.c_void_p)]),
    "ombrix_LocationCSVWriter_fixesWritten": (C.c_uint64, [C.c_void_p]),
    "ombrix_LocationCSVWriter_init": (C.c_void_p, []),
    "ombrix_LocationCSVWriter_initWithStream_error_": (C.c_void_p, [OmbrixOutputStream, C.POINTER(C.c_void_p)]),
    "ombrix_LocationCSVWriter_initWithUrl_error_": (C.c_void_p, [C.c_char_p, C.POINTER(C.c_void_p)]),
    "ombrix_LocationCSVWriter_stream": (OmbrixOutputStream, [C.c_void_p]),
    "ombrix_LocationCSVWriter_sync_": (C.c_bool, [C.c_void_p, C.POINTER(C.c_void_p)]),
    "ombrix_LoggingService_attachLogger_": (None, [C.c_void_p, OmbrixLogger]),
    "ombrix_LoggingService_extraLoggingEnabled": (C.c_bool, [C.c_void_p]),
    "ombrix_LoggingService_historicalLog": (OmbrixData, [C.c_void_p]),
    "ombrix_LoggingService_historicalLogText": (C.c_void_p, [C.c_void_p]),
    "ombrix_LoggingService_setExtraLoggingEnabled_": (None, [C.c_void_p, C.c_bool]),
    "ombrix_LoggingService_sharedInstance": (C.c_void_p, []),
    "ombrix_MMWormhole_OmbrixWormhole": (C.c_void_p, []),
    "ombrix_MMWormhole_clearMessageContentsForIdentifier_": (None, [C.c_void_p, C.c_char_p]),
    "ombrix_MMWormhole_messageWithIdentifier_": (OmbrixData, [C.c_void_p, C.c_char_p]),
    "ombrix_MMWormhole_passMessageObject_identifier_": (C.c_bool, [C.c_void_p, OmbrixValue, C.c_char_p]),
    "ombrix_Math_caloriesBurnedForUserWithWeight_overTime_": (C.c_double, [C.c_double, C.c_double]),
    "ombrix_MeasurementFormatter_attributedStringForObjectValue_withDefaultAttributes_": (C.c_void_p, [C.c_void_p, C.POINTER(OmbrixObjectValue), C.POINTER(OmbrixAttributes)]),
    "ombrix_MeasurementFormatter_attributedStringForObjectValue_withValueAttributes_unitLabelAttributes_": (C.c_void_p, [C.c_void_p, C.POINTER(OmbrixObjectValue), C.POINTER(OmbrixAttributes), C.POINTER(OmbrixAttributes)]),
    "ombrix_MeasurementFormatter_format": (C.c_int, [C.c_void_p]),
    "ombrix_MeasurementFormatter_getObjectValue_forString_": (C.c_bool, [C.c_void_p, C.POINTER(OmbrixObjectValue), C.c_char_p, C.POINTER(C.c_void_p)]),
    "ombrix_MeasurementFormatter_init": (C.c_void_p, []),
    "ombrix_MeasurementFormatter_initAs_": (C.c_void_p, [C.c_int]),
    "ombrix_MeasurementFormatter_initWithCoder_": (C.c_void_p, [C.c_void_p]),
    "ombrix_MeasurementFormatter_setLocale_": (None, [C.c_void_p, C.c_char_p]),
    "ombrix_MeasurementFormatter_setUnitStyle_": (None, [C.c_void_p, C.c_int]),
    "ombrix_MeasurementFormatter_stringForObjectValue_": (C.c_void_p, [C.c_void_p, C.POINTER(OmbrixObjectValue)]),
    "ombrix_MeasurementFormatter_unitLabel": (C.c_void_p, [C.c_void_p]),
    "ombrix_MeasurementFormatter_unitLabelFor_": (C.c_void_p, [C.c_void_p, C.c_char_p]),
    "ombrix_MeasurementFormatter_unitStyle": (C.c_int, [C.c_void_p]),
    "ombrix_NSDate_isEarlierThan_": (C.c_bool, [C.c_double, C.c_double]),
    "ombrix_NSDate_isEarlierThanOrEqualTo_": (C.c_bool, [C.c_double, C.c_double]),
    "ombrix_NSDate_isLaterThan_": (C.c_bool, [C.c_double, C.c_double]),
    "ombrix_NSDate_isLaterThanOrEqualTo_": (C.c_bool, [C.c_double, C.c_double]),
    "ombrix_NSMeasurement_valueByConvertingToUnit_": (C.c_double, [C.c_double, C.c_int, C.c_int]),
    "ombrix_NSUnit_symbol": (C.c_void_p, [C.c_int]),
    "ombrix_NSUnitEnergy_localized": (C.c_int, []),
    "ombrix_NSUnitEnergy_localizedInMetric_": (C.c_int, [C.c_char_p]),
    "ombrix_NSUnitFrequency_beatsPerMinute": (C.c_int, []),
    "ombrix_NSUnitFrequency_localized": (C.c_int, []),
    "ombrix_NSUnitFrequency_localizedInMetric_": (C.c_int, [C.c_char_p]),
    "ombrix_NSUnitLength_localizedForMeasurement_": (C.c_int, [C.c_int]),
    "ombrix_NSUnitLength_localizedForMeasurement_inPreference_": (C.c_int, [C.c_int, C.c_char_p]),
    "ombrix_NSUnitMass_localized": (C.c_int, []),
    "ombrix_NSUnitMass_localizedInMetric_": (C.c_int, [C.c_char_p]),
    "ombrix_NSUnitSpeed_localized": (C.c_int, []),
    "ombrix_NSUnitSpeed_localizedInMetric_": (C.c_int, [C.c_char_p]),
    "ombrix_NSUnitTemperature_localized": (C.c_int, []),
    "ombrix_NSUnitTemperature_localizedInMetric_": (C.c_int, [C.c_char_p]),
    "ombrix_OperationQueue_addCompletionBarrierBlock_": (None, [C.c_void_p, OmbrixOperationBlock, C.c_void_p]),
    "ombrix_OperationQueue_addOperationWithBlock_": (None, [C.c_void_p, OmbrixOperationBlock, C.c_void_p]),
    "ombrix_OperationQueue_init": (C.c_void_p, []),
    "ombrix_RetryPolicy_usual": (OmbrixRetryPolicy, []),
    "ombrix_ServerAPI_addObserver_forKeyPath_context_": (C.c_void_p, [C.c_void_p, OmbrixObserver, C.c_char_p, C.c_void_p]),
    "ombrix_ServerAPI_addOperation_": (None, [C.c_void_p, C.c_void_p]),
    "ombrix_ServerAPI_apiEndpoint": (C.c_void_p, [C.c_void_p]),
    "ombrix_ServerAPI_baseHost": (C.c_void_p, [C.c_void_p]),
    "ombrix_ServerAPI_baseURL": (C.c_void_p, [C.c_void_p]),
    "ombrix_ServerAPI_cacheSize": (C.c_int64, [C.c_void_p]),
    "ombrix_ServerAPI_cancelAllOperations": (None, [C.c_void_p]),
    "ombrix_ServerAPI_cancelRequestWithID_": (None, [C.c_void_p, C.c_char_p]),
    "ombrix_ServerAPI_changeTo_": (None, [C.c_int]),
    "ombrix_ServerAPI_clearCaches": (None, [C.c_void_p]),
    "ombrix_ServerAPI_clearLoginError": (None, [C.c_void_p]),
    "ombrix_ServerAPI_clearMaintenanceMode": (None, [C.c_void_p]),
    "ombrix_ServerAPI_completeExternalHTTPRequest": (None, [C.c_void_p]),
    "ombrix_ServerAPI_downloadUrl_toFile_progress_completion_context_": (C.c_void_p, [C.c_void_p, C.c_char_p, C.c_char_p, OmbrixTransferProgress, OmbrixServerAPICompletion, C.c_void_p]),
    "ombrix_ServerAPI_endPoint": (C.c_int, [C.c_void_p]),
    "ombrix_ServerAPI_endpoint": (C.c_void_p, [C.c_void_p]),
    "ombrix_ServerAPI_errorMessageForError_": (C.c_void_p, [C.c_void_p]),
    "ombrix_ServerAPI_hasOperations": (C.c_bool, [C.c_void_p]),
    "ombrix_ServerAPI_isExpensive": (C.c_bool, [C.c_void_p]),
    "ombrix_ServerAPI_isLimited": (C.c_bool, [C.c_void_p]),
    "ombrix_ServerAPI_isReachable": (C.c_bool, [C.c_void_p]),
    "ombrix_ServerAPI_jwtToken": (C.c_void_p, [C.c_void_p]),
    "ombrix_ServerAPI_localTimezoneFormatter": (C.c_void_p, []),
    "ombrix_ServerAPI_loginError": (C.c_bool, [C.c_void_p]),
    "ombrix_ServerAPI_requestWithUrl_method_disableCache_payload_completion_context_": (C.c_void_p, [C.c_void_p, C.c_char_p, C.c_char_p, C.c_bool, OmbrixPayload, OmbrixServerAPICompletion, C.c_void_p]),
    "ombrix_ServerAPI_serverIsInMaintenanceMode": (C.c_bool, [C.c_void_p]),
    "ombrix_ServerAPI_setForceLogoutHandler_context_": (None, [C.c_void_p, OmbrixServerAPIHandler, C.c_void_p]),
    "ombrix_ServerAPI_setJwtToken_": (None, [C.c_void_p, C.c_char_p]),
    "ombrix_ServerAPI_setLocalTimezoneFormatter_": (None, [C.c_void_p]),
    "ombrix_ServerAPI_setMaintenanceHandler_context_": (None, [C.c_void_p, OmbrixServerAPIHandler, C.c_void_p]),
    "ombrix_ServerAPI_setProduction_staging_development_": (C.c_bool, [C.c_void_p, C.c_char_p, C.c_char_p, C.c_char_p]),
    "ombrix_ServerAPI_setRetryPolicy_": (None, [C.c_void_p, C.POINTER(OmbrixRetryPolicy)]),
    "ombrix_ServerAPI_sharedInstance": (C.c_void_p, []),
    "ombrix_ServerAPI_trackExternalHTTPRequest": (None, [C.c_void_p]),
    "ombrix_ServerAPI_triggerLoginError": (None, [C.c_void_p]),
    "ombrix_ServerAPI_triggerMaintenanceMode": (None, [C.c_void_p]),
    "ombrix_ServerAPI_uploadFile_toUrl_method_progress_completion_context_": (C.c_void_p, [C.c_void_p, C.c_char_p, C.c_char_p, C.c_char_p, OmbrixTransferProgress, OmbrixServerAPICompletion, C.c_void_p]),
    "ombrix_ServerAPI_waitUntilAllOperationsAreFinished": (None, [C.c_void_p]),
    "ombrix_Settings_addObserver_forKeyPath_context_": (C.c_void_p, [C.c_void_p, OmbrixObserver, C.c_char_p, C.c_void_p]),
    "ombrix_Settings_automaticallyNotifiesObserversForKey_": (C.c_bool, [C.c_char_p]),
    "ombrix_Settings_disableSync": (None, [C.c_void_p]),
    "ombrix_Settings_enableSyncWithBehavior_": (None, [C.c_void_p, C.c_int]),
    "ombrix_Settings_extraLogging": (C.c_bool, [C.c_void_p]),
    "ombrix_Settings_hasSyncedToiCloudBefore": (C.c_bool, [C.c_void_p]),
    "ombrix_Settings_init": (C.c_void_p, []),
    "ombrix_Settings_keyFromGetter_": (C.c_void_p, [C.c_char_p]),
    "ombrix_Settings_keyFromSetter_": (C.c_void_p, [C.c_char_p]),
    "ombrix_Settings_localeDidChange_": (None, [C.c_void_p, C.c_void_p]),
    "ombrix_Settings_maskViaWormhole": (None, [C.c_void_p]),
    "ombrix_Settings_metricType": (C.c_void_p, [C.c_void_p]),
    "ombrix_Settings_observeValueForKeyPath_ofObject_change_context_": (None, [C.c_void_p, C.c_char_p, C.c_void_p, C.c_bool, C.c_void_p]),
    "ombrix_Settings_registerCoreSettings": (None, [C.c_void_p]),
    "ombrix_Settings_registerDefaults_": (None, [C.c_void_p, C.POINTER(C.c_char_p), C.POINTER(OmbrixValue), C.c_size_t]),
    "ombrix_Settings_registerMappings_": (None, [C.c_void_p, C.POINTER(C.c_char_p), C.POINTER(C.c_char_p), C.c_size_t]),
    "ombrix_Settings_registerSyncedPreferenceKeys_": (None, [C.c_void_p, C.POINTER(C.c_char_p), C.c_size_t]),
    "ombrix_Settings_resetSynedPreferences": (None, [C.c_void_p]),
    "ombrix_Settings_saveBool_withKey_": (None, [C.c_void_p, C.c_bool, C.c_char_p]),
    "ombrix_Settings_saveObject_withKey_": (None, [C.c_void_p, OmbrixValue, C.c_char_p]),
    "ombrix_Settings_setExtraLogging_": (None, [C.c_void_p, C.c_bool]),
    "ombrix_Settings_setMetricType_": (None, [C.c_void_p, C.c_char_p]),
    "ombrix_Settings_setSyncPreferences_": (None, [C.c_void_p, C.c_bool]),
    "ombrix_Settings_setterFromKey_": (C.c_void_p, [C.c_char_p]),
    "ombrix_Settings_shared": (C.c_void_p, []),
    "ombrix_Settings_shouldSyncForKey_": (C.c_bool, [C.c_char_p]),
    "ombrix_Settings_syncPreferences": (C.c_bool, [C.c_void_p]),
    "ombrix_String_sanitizedFileName": (C.c_void_p, [C.c_char_p]),
    "ombrix_TimerFormatter_attributedStringForObjectValue_withDefaultAttributes_": (C.c_void_p, [C.c_void_p, C.POINTER(OmbrixObjectValue), C.POINTER(OmbrixAttributes)]),
    "ombrix_TimerFormatter_attributedStringForObjectValue_withValueAttributes_unitLabelAttributes_": (C.c_void_p, [C.c_void_p, C.POINTER(OmbrixObjectValue), C.POINTER(OmbrixAttributes), C.POINTER(OmbrixAttributes)]),
    "ombrix_TimerFormatter_distinctMinVsMeters": (C.c_bool, [C.c_void_p]),
    "ombrix_TimerFormatter_init": (C.c_void_p, []),
    "ombrix_TimerFormatter_initWithCoder_": (C.c_void_p, [C.c_void_p]),
    "ombrix_TimerFormatter_initWithMinimumComponent_": (C.c_void_p, [C.c_int]),
    "ombrix_TimerFormatter_minimumComponent": (C.c_int, [C.c_void_p]),
    "ombrix_TimerFormatter_setLocale_": (None, [C.c_void_p, C.c_char_p]),
    "ombrix_TimerFormatter_setMinimumComponent_": (None, [C.c_void_p, C.c_int]),
    "ombrix_TimerFormatter_stringForObjectValue_": (C.c_void_p, [C.c_void_p, C.POINTER(OmbrixObjectValue)]),
    "ombrix_Track_dataInFormat_error_": (OmbrixData, [C.c_void_p, C.c_int, C.POINTER(C.c_void_p)]),
    "ombrix_Track_fault": (C.c_char_p, [C.c_void_p]),
    "ombrix_Track_heartRates": (C.POINTER(OmbrixHeartRate), [C.c_void_p]),
    "ombrix_Track_initWithData_format_error_": (C.c_void_p, [C.POINTER(C.c_uint8), C.c_size_t, C.c_int, C.POINTER(C.c_void_p)]),
    "ombrix_Track_initWithLocations_count_name_": (C.c_void_p, [C.POINTER(OmbrixLocation), C.c_size_t, C.c_char_p]),
    "ombrix_Track_initWithUrl_error_": (C.c_void_p, [C.c_char_p, C.POINTER(C.c_void_p)]),
    "ombrix_Track_lapFigures": (C.POINTER(OmbrixLap), [C.c_void_p]),
    "ombrix_Track_laps": (C.POINTER(C.c_double), [C.c_void_p]),
    "ombrix_Track_locations": (C.POINTER(OmbrixLocation), [C.c_void_p]),
    "ombrix_Track_name": (C.c_char_p, [C.c_void_p]),
    "ombrix_Track_skipped": (C.c_size_t, [C.c_void_p]),
    "ombrix_Transfer_cancel": (None, [C.c_void_p]),
    "ombrix_URL_fileURLWithPath_": (C.c_void_p, [C.c_char_p]),
    "ombrix_URL_path": (C.c_void_p, [C.c_char_p]),
    "ombrix_ValueFormatter_SecondaryFont": (C.c_char_p, []),
    "ombrix_ValueFormatter_SecondaryForegroundColor": (C.c_char_p, []),
    "ombrix_ValueFormatter_attributedStringForObjectValue_withDefaultAttributes_": (C.c_void_p, [C.c_void_p, C.POINTER(OmbrixObjectValue), C.POINTER(OmbrixAttributes)]),
    "ombrix_ValueFormatter_attributedStringForObjectValue_withValueAttributes_unitLabelAttributes_": (C.c_void_p, [C.c_void_p, C.POINTER(OmbrixObjectValue), C.POINTER(OmbrixAttributes), C.POINTER(OmbrixAttributes)]),
    "ombrix_ValueFormatter_init": (C.c_void_p, []),
    "ombrix_ValueFormatter_initWithCoder_": (C.c_void_p, [C.c_void_p]),
    "ombrix_ValueFormatter_shared": (C.c_void_p, []),
    "ombrix_APIHttpRequestOperation_release": (None, [C.c_void_p]),
    "ombrix_AttributedString_length": (C.c_size_t, [C.c_void_p]),
    "ombrix_AttributedString_release": (None, [C.c_void_p]),
    "ombrix_AttributedString_runCount": (C.c_size_t, [C.c_void_p]),
    "ombrix_AttributedString_runs": (C.POINTER(OmbrixAttributedRun), [C.c_void_p]),
    "ombrix_AttributedString_string": (C.c_void_p, [C.c_void_p]),
    "ombrix_CLLocationCoordinateCourse": (C.c_double, [OmbrixCoordinate, OmbrixCoordinate]),
    "ombrix_CLLocationCoordinateDistance": (C.c_double, [OmbrixCoordinate, OmbrixCoordinate]),
    "ombrix_CLLocationDegreesDifference": (C.c_double, [C.c_double, C.c_double]),
    "ombrix_Data_release": (None, [OmbrixData]),
    "ombrix_DateFormatter_release": (None, [C.c_void_p]),
    "ombrix_Day_release": (None, [C.c_void_p]),
    "ombrix_Day_sampleCount": (C.c_size_t, [C.c_void_p]),
    "ombrix_Day_segmentCount": (C.c_size_t, [C.c_void_p]),
    "ombrix_DurationFormatter_release": (None, [C.c_void_p]),
    "ombrix_Error_httpBody": (OmbrixData, [C.c_void_p]),
    "ombrix_Error_httpCase": (C.c_char_p, [C.c_void_p]),
    "ombrix_Error_httpStatus": (C.c_int, [C.c_void_p]),
    "ombrix_Error_message": (C.c_char_p, [C.c_void_p]),
    "ombrix_Error_release": (None, [C.c_void_p]),
    "ombrix_FileStore_release": (None, [C.c_void_p]),
    "ombrix_GeoJSON_partCount": (C.c_size_t, [C.c_void_p]),
    "ombrix_GeoJSON_release": (None, [C.c_void_p]),
    "ombrix_HRCSVParser_release": (None, [C.c_void_p]),
    "ombrix_HeartRateSamples_release": (None, [OmbrixHeartRateSamples]),
    "ombrix_KeyedStore_release": (None, [C.c_void_p]),
    "ombrix_Library_end": (None, []),
    "ombrix_Library_liveHandles": (C.c_size_t, []),
    "ombrix_Library_setIdentity": (None, [C.c_char_p, C.c_char_p, C.c_char_p]),
    "ombrix_Library_version": (C.c_char_p, []),
    "ombrix_LocationCSVParser_release": (None, [C.c_void_p]),
    "ombrix_LocationCSVWriter_release": (None, [C.c_void_p]),
    "ombrix_Locations_release": (None, [OmbrixLocations]),
    "ombrix_MMWormhole_release": (None, [C.c_void_p]),
    "ombrix_MeasurementFormatter_release": (None, [C.c_void_p]),
    "ombrix_Observation_release": (None, [C.c_void_p]),
    "ombrix_OperationQueue_release": (None, [C.c_void_p]),
    "ombrix_Settings_release": (None, [C.c_void_p]),
    "ombrix_String_release": (None, [C.c_void_p]),
    "ombrix_TimerFormatter_release": (None, [C.c_void_p]),
    "ombrix_Track_heartRateCount": (C.c_size_t, [C.c_void_p]),
    "ombrix_Track_lapCount": (C.c_size_t, [C.c_void_p]),
    "ombrix_Track_locationCount": (C.c_size_t, [C.c_void_p]),
    "ombrix_Track_release": (None, [C.c_void_p]),
    "ombrix_Transfer_release": (None, [C.c_void_p]),
    "ombrix_ValueFormatter_release": (None, [C.c_void_p]),
}
