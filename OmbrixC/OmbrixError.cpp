#include "OmbrixC/OmbrixError.h"

#include "OmbrixC/Detail/ErrorOut.hpp"

const char* ombrix_Error_message(const OmbrixError* error) {
  return error == nullptr ? "" : error->message.c_str();
}

void ombrix_Error_release(OmbrixError* error) { delete error; }
