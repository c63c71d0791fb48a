/* Wine's crtdbg.h plus the report-mode/report-file constants UCRT defines
   (and the release-build no-op _CrtSetReportFile). */
#pragma once
#include_next <crtdbg.h>
#ifndef _CRTDBG_MODE_FILE
#define _CRTDBG_MODE_FILE   0x1
#define _CRTDBG_MODE_DEBUG  0x2
#define _CRTDBG_MODE_WNDW   0x4
#define _CRTDBG_REPORT_MODE (-1)
#endif
#ifndef _HFILE_DEFINED
#define _HFILE_DEFINED
typedef void* _HFILE;
#endif
#ifndef _CRTDBG_FILE_STDERR
#define _CRTDBG_INVALID_HFILE ((_HFILE)(intptr_t)-1)
#define _CRTDBG_HFILE_ERROR   ((_HFILE)(intptr_t)-2)
#define _CRTDBG_FILE_STDOUT   ((_HFILE)(intptr_t)-4)
#define _CRTDBG_FILE_STDERR   ((_HFILE)(intptr_t)-5)
#define _CRTDBG_REPORT_FILE   ((_HFILE)(intptr_t)-6)
#endif
#if !defined(_DEBUG) && !defined(_CrtSetReportFile)
#define _CrtSetReportFile(t, f) ((_HFILE)0)
#endif
