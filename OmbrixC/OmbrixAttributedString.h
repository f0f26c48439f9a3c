#ifndef OMBRIXC_OMBRIX_ATTRIBUTED_STRING_H
#define OMBRIXC_OMBRIX_ATTRIBUTED_STRING_H

#include <stdbool.h>

#include "OmbrixC/OmbrixTypes.h"

#ifdef __cplusplus
extern "C" {
#endif

/// A font; the size in points.
typedef struct OmbrixFont {
  const char* name;
  bool isBold;
  bool isItalic;
  double pointSize;
} OmbrixFont;

/// A colour in sRGB; every part from 0 to 1.
typedef struct OmbrixColor {
  double red;
  double green;
  double blue;
  double alpha;
} OmbrixColor;

/// The attributes of a text; a missing attribute is NULL. Borrowed for the call. The secondary ones
/// are for unit letters.
typedef struct OmbrixAttributes {
  const OmbrixFont* font;
  const OmbrixColor* foregroundColor;
  const OmbrixFont* secondaryFont;
  const OmbrixColor* secondaryForegroundColor;
} OmbrixAttributes;

/// A styled text, which never changes. The caller owns each one that a function returns.
typedef struct OmbrixAttributedString OmbrixAttributedString;

/// A longest stretch of equal attributes: where it lies in UTF-16 units, and in the bytes of the
/// text in UTF-8. The pointers are NULL for attributes that are not set, and valid until the text
/// is released.
typedef struct OmbrixAttributedRun {
  size_t location;
  size_t length;
  const OmbrixFont* font;
  const OmbrixColor* foregroundColor;
  size_t utf8Location;
  size_t utf8Length;
} OmbrixAttributedRun;

/// The text without its attributes; the caller owns the copy.
char* ombrix_AttributedString_string(const OmbrixAttributedString* self);

/// The length in UTF-16 units.
size_t ombrix_AttributedString_length(const OmbrixAttributedString* self);

/// How many runs there are: 0 for the empty text only.
size_t ombrix_AttributedString_runCount(const OmbrixAttributedString* self);

/// The runs in order, which together cover the text; borrowed until the text is released.
const OmbrixAttributedRun* ombrix_AttributedString_runs(const OmbrixAttributedString* self);

/// Gives a text back; NULL is allowed.
void ombrix_AttributedString_release(OmbrixAttributedString* self);

#ifdef __cplusplus
}
#endif

#endif
