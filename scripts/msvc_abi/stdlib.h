#pragma once
#include_next <stdlib.h>
extern "C" {
int _dupenv_s(char**, size_t*, const char*);
int at_quick_exit(void (*)());
[[noreturn]] void quick_exit(int);
long double strtold(const char*, char**);
}
