#pragma once
#include_next <stdio.h>
extern "C" {
int vfscanf(FILE*, const char*, va_list);
int vscanf(const char*, va_list);
int vsscanf(const char*, const char*, va_list);
}
