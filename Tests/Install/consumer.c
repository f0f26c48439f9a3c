#include <OmbrixC/OmbrixError.h>
#include <string.h>

int main(void) { return strlen(ombrix_Error_message(NULL)) == 0 ? 0 : 1; }
