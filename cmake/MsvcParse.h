/* For scripts/parse-msvc, which parses it once for all sources: what the headers of mingw leave out where the compiler
   says that it is Microsoft's, and the toolkit.
*/

#include <_mingw.h>
#undef __MINGW_IMPORT
#define __MINGW_IMPORT extern __declspec(dllimport)
extern "C" int __cdecl __MINGW_NOTHROW _finite (double);
#include <cstring>
#include <juce_gui_basics/juce_gui_basics.h>
