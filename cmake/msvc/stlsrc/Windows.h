/* case spelling used by microsoft/STL sources */
#include <windows.h>
