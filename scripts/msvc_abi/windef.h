#pragma once
#include_next <windef.h>
#undef inline
