/* Places, sizes, names of files, units and the log. The argument is a folder to write to.

prints:
file:///home/me/my%20track.csv
/home/me/my track.csv
Zurich2024
5000 bytes and more
100 km/h are 27.78 m/s
error: a folder that is none
*/
#include <OmbrixC/OmbrixC.h>
#include <stdio.h>
#include <string.h>

static void say(char* text) {
  puts(text != NULL ? text : "none");
  ombrix_String_release(text);
}

static void onLine(void* context, uint32_t flag, const char* line) {
  (void)context;
  if (flag == 1 && strstr(line, "Error creating folder") != NULL) {
    puts("error: a folder that is none");
  }
}

int main(int count, char** arguments) {
  say(ombrix_URL_fileURLWithPath_("/home/me/my track.csv"));
  say(ombrix_URL_path("file:///home/me/my%20track.csv"));
  say(ombrix_String_sanitizedFileName("Zürich/2024?"));

  char path[4096];
  snprintf(path, sizeof path, "%s/bytes", count > 1 ? arguments[1] : ".");
  FILE* file = fopen(path, "w");
  if (file == NULL) return 1;
  for (int i = 0; i < 5000; ++i) fputc('x', file);
  fclose(file);
  char* url = ombrix_URL_fileURLWithPath_(path);
  uint64_t size = 0;
  OmbrixError* error = NULL;
  if (!ombrix_FileManager_allocatedSizeAt_error_(url, &size, &error)) {
    puts(ombrix_Error_message(error));
    ombrix_Error_release(error);
  }
  ombrix_String_release(url);
  if (size >= 5000) puts("5000 bytes and more");

  printf("100 km/h are %.2f m/s\n",
         ombrix_NSMeasurement_valueByConvertingToUnit_(100, OmbrixUnitKilometersPerHour,
                                                       OmbrixUnitMetersPerSecond));

  const OmbrixLogger logger = {NULL, onLine, NULL};
  ombrix_LoggingService_attachLogger_(ombrix_LoggingService_sharedInstance(), logger);
  ombrix_FileManager_touchWithUrl_("no URL");

  ombrix_Library_end();
  return ombrix_Library_liveHandles() == 0 ? 0 : 1;
}
