#pragma once
// The library's version, exported as C symbols as a framework's umbrella header declares them.
#include "QuillmereExport.h"

#ifdef __cplusplus
extern "C" {
#endif

QLM_EXPORT extern const double QuillmereVersionNumber;
QLM_EXPORT extern const unsigned char QuillmereVersionString[];

#ifdef __cplusplus
}
#endif
