/* Bytes kept in files, by name and by key, and a geometry. The argument is a folder.

prints:
nothing yet
12 bytes, on the disk
key: monte-rosa
120 beds
gone
line of 2: {"type":"LineString","coordinates":[[7.25,46.5],[7.5,46.75]]}
no geometry: 1
*/
#include <OmbrixC/OmbrixC.h>
#include <stdio.h>
#include <string.h>

static void visit(const char* key, void* context) {
  (void)context;
  printf("key: %s\n", key);
}

static char* urlOf(const char* folder, const char* name) {
  char path[4096];
  snprintf(path, sizeof path, "%s/%s", folder, name);
  return ombrix_URL_fileURLWithPath_(path);
}

int main(int count, char** arguments) {
  if (count < 2) return 2;
  char* url = urlOf(arguments[1], "hut.bin");
  OmbrixFileStore* store = ombrix_FileStore_initWithUrl_error_(url, NULL);
  ombrix_String_release(url);
  if (!ombrix_FileStore_exists(store)) puts("nothing yet");
  ombrix_FileStore_setValue_length_(store, (const uint8_t*)"Finsteraarho", 12);
  OmbrixData data = ombrix_FileStore_value(store);
  printf("%zu bytes, %s\n", data.length, ombrix_FileStore_size(store) > 0 ? "on the disk" : "lost");
  ombrix_Data_release(data);
  ombrix_FileStore_purge(store);
  ombrix_FileStore_release(store);

  url = urlOf(arguments[1], "huts");
  OmbrixKeyedStore* huts = ombrix_KeyedStore_initWithUrl_fileExtension_error_(url, "txt", NULL);
  ombrix_String_release(url);
  ombrix_KeyedStore_storeValue_length_forKey_(huts, (const uint8_t*)"120 beds", 8, "monte-rosa");
  ombrix_KeyedStore_visitKeys_context_(huts, visit, NULL);
  data = ombrix_KeyedStore_valueForKey_(huts, "monte-rosa");
  printf("%.*s\n", (int)data.length, (const char*)data.bytes);
  ombrix_Data_release(data);
  ombrix_KeyedStore_purgeForKey_(huts, "monte-rosa");
  if (ombrix_KeyedStore_ageForKey_(huts, "monte-rosa") < 0) puts("gone");
  ombrix_KeyedStore_release(huts);

  const OmbrixCoordinate way[] = {{46.5, 7.25}, {46.75, 7.5}};
  const size_t places = 2;
  OmbrixGeoJSON* line = ombrix_GeoJSON_initWithKind_coordinates_counts_parts_error_(
      OmbrixGeoJSONKindLineString, way, &places, 1, NULL);
  data = ombrix_GeoJSON_data_error_(line, NULL);
  printf("line of %zu: %.*s\n", ombrix_GeoJSON_coordinateCountOfPart_(line, 0), (int)data.length,
         (const char*)data.bytes);
  ombrix_Data_release(data);
  ombrix_GeoJSON_release(line);
  OmbrixError* error = NULL;
  const char* const bad = "{\"type\":\"Point\"}";
  line = ombrix_GeoJSON_initWithData_length_error_((const uint8_t*)bad, strlen(bad), &error);
  printf("no geometry: %d\n", line == NULL && error != NULL);
  ombrix_Error_release(error);

  ombrix_Library_end();
  return ombrix_Library_liveHandles() == 0 ? 0 : 1;
}
