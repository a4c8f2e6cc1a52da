#pragma once
#define _InterlockedCompareExchange128 shimInterlockedCompareExchange128
#include_next <winnt.h>
#undef _InterlockedCompareExchange128
#define IsReparseTagNameSurrogate(tag) ((tag)&0x20000000)
