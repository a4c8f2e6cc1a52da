#pragma once
#define timespec timespecOfSomeVersions
#include_next <time.h>
#undef timespec
struct timespec {
  time_t tv_sec;
  long tv_nsec;
};
extern "C" int timespec_get(timespec*, int);
