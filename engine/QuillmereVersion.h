#pragma once
// The library's version, exported as C symbols as a framework's umbrella header declares them.
#ifdef __cplusplus
extern "C" {
#endif

extern const double QuillmereVersionNumber;
extern const unsigned char QuillmereVersionString[];

#ifdef __cplusplus
}
#endif
