#include "engine/QuillmereVersion.h"

extern "C" {
const double QuillmereVersionNumber = 1.0;
const unsigned char QuillmereVersionString[] = "@(#)PROGRAM:Quillmere  PROJECT:Quillmere-1\n";
}
