// The entry points of a console program (mainCRTStartup, wmainCRTStartup) over ucrtbase.dll:
// the C runtime's own set-up, then the module's initialisers (dll_startup.cpp), main, its
// atexit table and exit.
#include <corecrt_startup.h>

extern "C" {
int kel_crt_initialize();
void kel_crt_terminate();
__declspec(dllimport) int* __cdecl __p___argc(void);
__declspec(dllimport) char*** __cdecl __p___argv(void);
__declspec(dllimport) wchar_t*** __cdecl __p___wargv(void);
__declspec(dllimport) void __cdecl exit(int);
int main(int, char**, char**);
int wmain(int, wchar_t**, wchar_t**);
// A program has one of main and wmain; the other resolves to a stand-in never called.
int kel_crt_no_main(int, char**, char**) { return 255; }
int kel_crt_no_wmain(int, wchar_t**, wchar_t**) { return 255; }
#pragma comment(linker, "/alternatename:main=kel_crt_no_main")
#pragma comment(linker, "/alternatename:wmain=kel_crt_no_wmain")

static int start(bool wide) {
    _set_app_type(_crt_console_app);
    if (wide) {
        _configure_wide_argv(_crt_argv_unexpanded_arguments);
        _initialize_wide_environment();
    } else {
        _configure_narrow_argv(_crt_argv_unexpanded_arguments);
        _initialize_narrow_environment();
    }
    if (kel_crt_initialize() != 0) return 255;
    const int rc = wide ? wmain(*__p___argc(), *__p___wargv(), _get_initial_wide_environment())
                        : main(*__p___argc(), *__p___argv(), _get_initial_narrow_environment());
    kel_crt_terminate();
    exit(rc);
    return rc;
}
int mainCRTStartup(void) { return start(false); }
int wmainCRTStartup(void) { return start(true); }
}
