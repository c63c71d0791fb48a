/* UCRT internal header name used by STL src; terminate() decls live in eh.h */
#pragma once
#include <eh.h>
