#pragma once
#include_next <locale.h>
#include <stdlib.h>
#ifndef MB_CUR_MAX
#define MB_CUR_MAX 2
#endif
extern "C" {
int _islower_l(int, _locale_t);
int _isupper_l(int, _locale_t);
float _strtof_l(const char*, char**, _locale_t);
double _strtod_l(const char*, char**, _locale_t);
}
