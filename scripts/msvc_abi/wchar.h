#pragma once
#include_next <wchar.h>
extern "C" {
struct _iobuf;
long double wcstold(const wchar_t*, wchar_t**);
int fwide(_iobuf*, int);
int mbsinit(const mbstate_t*);
int vfwscanf(_iobuf*, const wchar_t*, va_list);
int vswscanf(const wchar_t*, const wchar_t*, va_list);
int vwscanf(const wchar_t*, va_list);
}
