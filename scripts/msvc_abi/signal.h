#pragma once
typedef int sig_atomic_t;
#include_next <signal.h>
