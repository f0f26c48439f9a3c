/* A track written, read, measured and converted. The argument is a folder to write to.

prints:
written: 600 fixes
read: 600 fixes, 6.7 km
1 run, 1198 m down, 11.0 m/s at most
run 1: 600 s
GPX: 600 fixes
Could not open "/no/such track.csv": No such file or directory
Could not read the file URL "no URL": Invalid argument
*/
#include <OmbrixC/OmbrixC.h>
#include <stdio.h>

static void sayError(OmbrixError* error) {
  puts(ombrix_Error_message(error));
  ombrix_Error_release(error);
}

/* Ten minutes straight down a slope. */
static int writeTrack(const char* url) {
  OmbrixError* error = NULL;
  OmbrixLocationCSVWriter* writer = ombrix_LocationCSVWriter_initWithUrl_error_(url, &error);
  if (writer == NULL) return sayError(error), 1;
  for (int second = 0; second < 600; ++second) {
    const OmbrixLocation fix = {.coordinate = {46.5 - second * 1e-4, 7.25},
                                .altitude = 2500 - second * 2.0,
                                .horizontalAccuracy = 4,
                                .verticalAccuracy = 4,
                                .course = 180,
                                .courseAccuracy = -1,
                                .speed = 11,
                                .speedAccuracy = -1,
                                .timestamp = 1700000000 + second};
    if (!ombrix_LocationCSVWriter_addLocation_error_(writer, &fix, &error)) sayError(error);
  }
  printf("written: %d fixes\n", (int)ombrix_LocationCSVWriter_fixesWritten(writer));
  ombrix_LocationCSVWriter_release(writer);
  return 0;
}

int main(int count, char** arguments) {
  char path[4096];
  snprintf(path, sizeof path, "%s/my track.csv", count > 1 ? arguments[1] : ".");
  char* url = ombrix_URL_fileURLWithPath_(path);
  int failed = writeTrack(url);

  OmbrixError* error = NULL;
  OmbrixTrack* track = ombrix_Track_initWithUrl_error_(url, &error);
  ombrix_String_release(url);
  if (track == NULL) return sayError(error), 1;
  const OmbrixLocation* fixes = ombrix_Track_locations(track);
  const size_t fixCount = ombrix_Track_locationCount(track);
  double metres = 0;
  for (size_t i = 1; i < fixCount; ++i) {
    metres += ombrix_CLLocation_distanceFromLocation_(&fixes[i], &fixes[i - 1]);
  }
  printf("read: %zu fixes, %.1f km\n", fixCount, metres / 1000);

  OmbrixDay* day = ombrix_Day_initWithTrack_(track);
  const OmbrixDayTotals totals = ombrix_Day_totals(day);
  printf("%zu run, %.0f m down, %.1f m/s at most\n", totals.runs, totals.all.descent,
         totals.all.maxSpeed);
  const OmbrixDaySegment* segments = ombrix_Day_segments(day);
  for (size_t i = 0; i < ombrix_Day_segmentCount(day); ++i) {
    if (segments[i].kind == OmbrixSegmentKindRun) {
      printf("run %d: %.0f s\n", segments[i].number, segments[i].end - segments[i].begin + 1);
    }
  }
  ombrix_Day_release(day);

  const OmbrixData gpx = ombrix_Track_dataInFormat_error_(track, OmbrixTrackFormatGPX, &error);
  ombrix_Track_release(track);
  track =
      ombrix_Track_initWithData_format_error_(gpx.bytes, gpx.length, OmbrixTrackFormatGPX, &error);
  ombrix_Data_release(gpx);
  printf("GPX: %zu fixes\n", ombrix_Track_locationCount(track));
  ombrix_Track_release(track);

  const char* const bad[] = {"file:///no/such%20track.csv", "no URL"};
  for (size_t i = 0; i < 2; ++i) {
    failed |= ombrix_Track_initWithUrl_error_(bad[i], &error) != NULL;
    sayError(error);
  }

  ombrix_Library_end();
  return failed == 0 && ombrix_Library_liveHandles() == 0 ? 0 : 1;
}
