// The static part of MSVC's C runtime that every /MD module links (msvcrt.lib's objects, not
// its imports), over ucrtbase.dll and kernel32.dll: the DLL entry point running the C and C++
// initialiser tables, a module-local atexit table, the TLS directory, the thread-safe static
// protocol clang-cl emits, the /GS cookie, std::nothrow, _fltused, the replaceable operator
// new/delete, and the type_info vftable RTTI descriptors point at.
#include <windows.h>
#include <corecrt_startup.h>
#include <new>

// As MSVC's runtime objects do, they name the system library they need themselves.
#pragma comment(lib, "kernel32")

using InitFunction = int(__cdecl*)();
using TermFunction = void(__cdecl*)();

// The linker sorts .CRT$X?? sections by name: the A and Z entries bracket what the compiler
// put in between (XI: C initialisers, XC: C++ constructors, XL: TLS callbacks).
#pragma section(".CRT$XIA", long, read)
#pragma section(".CRT$XIZ", long, read)
#pragma section(".CRT$XCA", long, read)
#pragma section(".CRT$XCZ", long, read)
#pragma section(".CRT$XLA", long, read)
#pragma section(".CRT$XLZ", long, read)
extern "C" {
__declspec(allocate(".CRT$XIA")) InitFunction __xi_a[] = {nullptr};
__declspec(allocate(".CRT$XIZ")) InitFunction __xi_z[] = {nullptr};
__declspec(allocate(".CRT$XCA")) TermFunction __xc_a[] = {nullptr};
__declspec(allocate(".CRT$XCZ")) TermFunction __xc_z[] = {nullptr};
__declspec(allocate(".CRT$XLA")) PIMAGE_TLS_CALLBACK __xl_a = nullptr;
__declspec(allocate(".CRT$XLZ")) PIMAGE_TLS_CALLBACK __xl_z = nullptr;

// The TLS directory the loader reads: without it thread_local has no storage in this module.
ULONG _tls_index = 0;
#pragma section(".tls", long, read, write)
#pragma section(".tls$ZZZ", long, read, write)
__declspec(allocate(".tls")) char _tls_start = 0;
__declspec(allocate(".tls$ZZZ")) char _tls_end = 0;
#pragma section(".rdata$T", long, read)
__declspec(allocate(".rdata$T")) extern const IMAGE_TLS_DIRECTORY64 _tls_used = {
    (ULONGLONG)&_tls_start, (ULONGLONG)&_tls_end, (ULONGLONG)&_tls_index, (ULONGLONG)(&__xl_a + 1), 0, 0};

// Referenced by every object that uses floating point.
int _fltused = 0x9875;

// Objects built with stack cookies (/GS) check against this value; it is made unguessable
// before any initialiser runs.
UINT_PTR __security_cookie = 0x00002B992DDFA232ull;
UINT_PTR __security_cookie_complement = ~0x00002B992DDFA232ull;
void __cdecl __security_check_cookie(UINT_PTR cookie) {
    if (cookie != __security_cookie) __fastfail(2 /* FAST_FAIL_STACK_COOKIE_CHECK_FAILURE */);
}
static void initCookie() {
    LARGE_INTEGER t;
    QueryPerformanceCounter(&t);
    UINT_PTR c = (UINT_PTR)t.QuadPart ^ ((UINT_PTR)GetCurrentThreadId() << 32) ^ GetCurrentProcessId() ^ (UINT_PTR)&t;
    c &= 0x0000FFFFFFFFFFFFull;
    if (c == 0x00002B992DDFA232ull || c == 0) c = 0x00002B992DDFA233ull;
    __security_cookie = c;
    __security_cookie_complement = ~c;
}

// A DLL's atexit functions (its static destructors) run when it is unloaded, not at process
// exit: each module keeps its own table.
static _onexit_table_t moduleOnExit;
int __cdecl atexit(TermFunction f) {
    return _register_onexit_function(&moduleOnExit, (_onexit_t)f) == 0 ? 0 : -1;
}

// Thread-safe function-local statics, MSVC's protocol: a guard word per static, a global
// epoch, and a per-thread copy of it that lets the fast path skip the lock.
int _Init_global_epoch = INT_MIN;
__declspec(thread) int _Init_thread_epoch = INT_MIN;
static SRWLOCK guardLock = SRWLOCK_INIT;
static CONDITION_VARIABLE guardDone = CONDITION_VARIABLE_INIT;
void __cdecl _Init_thread_header(int* once) {
    AcquireSRWLockExclusive(&guardLock);
    if (*once == 0) {
        *once = -1;  // this thread runs the initialiser
    } else {
        while (*once == -1) SleepConditionVariableSRW(&guardDone, &guardLock, INFINITE, 0);
        _Init_thread_epoch = _Init_global_epoch;
    }
    ReleaseSRWLockExclusive(&guardLock);
}
void __cdecl _Init_thread_footer(int* once) {
    AcquireSRWLockExclusive(&guardLock);
    ++_Init_global_epoch;
    *once = _Init_global_epoch;
    _Init_thread_epoch = _Init_global_epoch;
    ReleaseSRWLockExclusive(&guardLock);
    WakeAllConditionVariable(&guardDone);
}
void __cdecl _Init_thread_abort(int* once) {
    AcquireSRWLockExclusive(&guardLock);
    *once = 0;
    ReleaseSRWLockExclusive(&guardLock);
    WakeAllConditionVariable(&guardDone);
}

// Shared with exe_startup.cpp.
int kel_crt_initialize() {
    initCookie();
    if (_initialize_onexit_table(&moduleOnExit) != 0) return 1;
    for (InitFunction* p = __xi_a + 1; p < __xi_z; ++p)
        if (*p && (*p)() != 0) return 1;
    for (TermFunction* p = __xc_a + 1; p < __xc_z; ++p)
        if (*p) (*p)();
    return 0;
}
void kel_crt_terminate() { _execute_onexit_table(&moduleOnExit); }

// A module without a DllMain of its own gets this one.
BOOL WINAPI DllMain(HINSTANCE, DWORD, LPVOID);
BOOL WINAPI kel_crt_default_DllMain(HINSTANCE, DWORD, LPVOID) { return TRUE; }
#pragma comment(linker, "/alternatename:DllMain=kel_crt_default_DllMain")

BOOL WINAPI _DllMainCRTStartup(HINSTANCE module, DWORD reason, LPVOID reserved) {
    if (reason == DLL_PROCESS_ATTACH) {
        if (kel_crt_initialize() != 0) return FALSE;
        return DllMain(module, reason, reserved);
    }
    if (reason == DLL_PROCESS_DETACH) {
        const BOOL ok = DllMain(module, reason, reserved);
        kel_crt_terminate();
        return ok;
    }
    return DllMain(module, reason, reserved);
}

// RTTI type descriptors point at type_info's vftable; only its address is used (exceptions are
// matched by decorated name), so a one-entry table stands in for vcruntime's static copy.
static void __cdecl typeInfoDestructor(void*) {}
extern const void* const kel_crt_type_info_vftable[1];
const void* const kel_crt_type_info_vftable[1] = {(const void*)&typeInfoDestructor};
#pragma comment(linker, "/alternatename:??_7type_info@@6B@=kel_crt_type_info_vftable")
}  // extern "C"

namespace std {
extern const nothrow_t nothrow{};
}

// The replaceable global operator new and delete: MSVC keeps them in the static runtime too,
// so that a program may replace them.
extern "C" {
__declspec(dllimport) void* __cdecl malloc(size_t);
__declspec(dllimport) void __cdecl free(void*);
__declspec(dllimport) int __cdecl _callnewh(size_t);
__declspec(dllimport) void* __cdecl _aligned_malloc(size_t, size_t);
__declspec(dllimport) void __cdecl _aligned_free(void*);
}
void* __cdecl operator new(size_t n) {
    for (;;) {
        if (void* p = malloc(n ? n : 1)) return p;
        if (_callnewh(n) == 0) throw std::bad_alloc();
    }
}
void* __cdecl operator new[](size_t n) { return ::operator new(n); }
void* __cdecl operator new(size_t n, const std::nothrow_t&) noexcept {
    try {
        return ::operator new(n);
    } catch (...) {
        return nullptr;
    }
}
void* __cdecl operator new[](size_t n, const std::nothrow_t&) noexcept { return ::operator new(n, std::nothrow); }
void __cdecl operator delete(void* p) noexcept { free(p); }
void __cdecl operator delete[](void* p) noexcept { free(p); }
void __cdecl operator delete(void* p, size_t) noexcept { free(p); }
void __cdecl operator delete[](void* p, size_t) noexcept { free(p); }
void __cdecl operator delete(void* p, const std::nothrow_t&) noexcept { free(p); }
void __cdecl operator delete[](void* p, const std::nothrow_t&) noexcept { free(p); }
void* __cdecl operator new(size_t n, std::align_val_t al) {
    for (;;) {
        if (void* p = _aligned_malloc(n ? n : 1, static_cast<size_t>(al))) return p;
        if (_callnewh(n) == 0) throw std::bad_alloc();
    }
}
void* __cdecl operator new[](size_t n, std::align_val_t al) { return ::operator new(n, al); }
void* __cdecl operator new(size_t n, std::align_val_t al, const std::nothrow_t&) noexcept {
    try {
        return ::operator new(n, al);
    } catch (...) {
        return nullptr;
    }
}
void* __cdecl operator new[](size_t n, std::align_val_t al, const std::nothrow_t&) noexcept {
    return ::operator new(n, al, std::nothrow);
}
void __cdecl operator delete(void* p, std::align_val_t) noexcept { _aligned_free(p); }
void __cdecl operator delete[](void* p, std::align_val_t) noexcept { _aligned_free(p); }
void __cdecl operator delete(void* p, size_t, std::align_val_t) noexcept { _aligned_free(p); }
void __cdecl operator delete[](void* p, size_t, std::align_val_t) noexcept { _aligned_free(p); }
void __cdecl operator delete(void* p, std::align_val_t, const std::nothrow_t&) noexcept { _aligned_free(p); }
void __cdecl operator delete[](void* p, std::align_val_t, const std::nothrow_t&) noexcept { _aligned_free(p); }
