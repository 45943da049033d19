/* For scripts/parse-msvc: what the headers of mingw leave out where the compiler says that it is Microsoft's. */

#include <_mingw.h>
#undef __MINGW_IMPORT
#define __MINGW_IMPORT extern __declspec(dllimport)
extern "C" int __cdecl __MINGW_NOTHROW _finite (double);
#include <cstring>
