#pragma once
#define _InterlockedCompareExchange128 shimInterlockedCompareExchange128
#include_next <winnt.h>
#undef _InterlockedCompareExchange128
#define IsReparseTagNameSurrogate(tag) ((tag) & 0x20000000)
#define PROTECTED_DACL_SECURITY_INFORMATION 0x80000000L
