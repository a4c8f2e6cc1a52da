#pragma once
#include_next <string.h>
#include <sys/types.h>
// Wine's headers alone have these.
#pragma GCC poison strcasecmp strncasecmp ssize_t
